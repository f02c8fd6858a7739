#pragma once

#include <optional>
#include <string>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "examples/windows/upload_watch.h"

namespace sample {

/// What the window of a product shows about its helper, and what it has the helper do, whatever the
/// toolkit. Nothing in it waits for the helper.
class ProductModel final : public TQHPProductUpgradeCallBackDelegate {
 public:
  /// The window, as the model sees it.
  class View {
   public:
    /// What the model says has changed.
    virtual void modelChanged() = 0;
    /// The helper asks whether the product is ready for an upgrade; `answerUpgrade` is the answer.
    virtual void askForUpgrade() = 0;
    /// Shows the HTML page at `path`.
    virtual void showPage(const std::string& path) = 0;

   protected:
    ~View() = default;
  };

  explicit ProductModel(View& view);
  ~ProductModel();
  ProductModel(const ProductModel&) = delete;
  ProductModel& operator=(const ProductModel&) = delete;

  /// Starts the helper, and returns at once.
  void start();
  /// Looks at the helper again; the window calls it a few times a second.
  void refresh();

  void showHelper();
  void hideHelper();
  void setTips(bool isOn);
  void upload(const std::string& path);
  void lookForUpgrade();
  void answerUpgrade(bool isReady);
  void fetchErrorPage();

  /// The helper's state, for people to read.
  const std::string& status() const { return status_; }
  /// What came of the latest action.
  const std::string& outcome() const { return outcome_; }
  bool areTipsOn() const { return areTipsOn_; }
  const UploadProgress& uploadProgress() const { return uploadProgress_; }

 private:
  void productWillUpgrade(const clientcomm::Error* error) override;
  std::string currentStatus() const;
  void report(const std::string& action, OSErr status);

  View& view_;
  UploadWatch uploads_;
  std::string status_ = "Starting";
  std::string outcome_;
  UploadProgress uploadProgress_;
  std::optional<OSErr> started_;
  bool areTipsOn_ = true;
  clientcomm::PendingQuery pageQuery_;
};

}  // namespace sample
