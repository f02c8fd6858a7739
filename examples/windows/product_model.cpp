#include "examples/windows/product_model.h"

#include <chrono>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperError.h"
#include "ClientComm/platform/bundle.h"

using clientcomm::OptionalString;

namespace sample {
namespace {

constexpr std::chrono::seconds kPageLimit{5};

// On unless the product's settings say otherwise.
bool areTipsOnAtFirst() {
  const auto value = clientcomm::Bundle::mainBundle().objectForInfoDictionaryKey("TipsEnable");
  return !value || value->boolValue();
}

std::string textOf(OSErr status) {
  switch (status) {
    case clientcomm::noErr:
      return "done";
    case clientcomm::kHelperServerClosed:
      return "the helper's server is closed";
    case clientcomm::errAETimeout:
      return "the helper does not answer";
    default:
      return "status " + std::to_string(status);
  }
}

std::string textOf(const clientcomm::Error& error) {
  const auto text = error.userInfo.find(kHelperErrorDescription);
  return text == error.userInfo.end() ? std::to_string(error.code) : text->second;
}

TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

}  // namespace

ProductModel::ProductModel(View& view) : view_(view), areTipsOn_(areTipsOnAtFirst()) {}

ProductModel::~ProductModel() {
  if (started_) controller().setProductUpgradeDelegate(nullptr);
}

void ProductModel::start() {
  TQHPHelper::shareAsync([this](OSErr status) {
    started_ = status;
    refresh();
  });
  controller().setProductUpgradeDelegate(this);
}

std::string ProductModel::currentStatus() const {
  if (!started_) return "Starting";
  if (!controller().getDefaultHelperServerOpen()) return "The helper's server is closed";
  const OSErr status = controller().isAliveHelper();
  if (status == clientcomm::errAETimeout) return "The helper does not respond";
  if (status != clientcomm::noErr) return "The helper does not run";
  const OptionalString& id = controller().clientID();
  return id ? "The helper runs, client " + id->substr(0, 8) : "The helper runs";
}

void ProductModel::refresh() {
  status_ = currentStatus();
  uploadProgress_ = uploads_.look();
  view_.modelChanged();
}

void ProductModel::report(const std::string& action, OSErr status) {
  outcome_ = action + ": " + textOf(status);
  refresh();
}

void ProductModel::showHelper() { report("Show the helper", controller().showHelper()); }
void ProductModel::hideHelper() { report("Hide the helper", controller().hideHelper()); }

void ProductModel::setTips(bool isOn) {
  if (isOn == areTipsOn_) return;
  areTipsOn_ = isOn;
  controller().setTipsEnable(isOn);
  outcome_ = isOn ? "Tips are on" : "Tips are off";
  refresh();
}

void ProductModel::upload(const std::string& path) {
  const std::string title = uploads_.begin(path);
  const OSErr status = controller().uploadUserFile(std::nullopt, path, title, std::nullopt);
  if (status != clientcomm::noErr) uploads_.giveUp();
  report("Hand over " + title, status);
}

void ProductModel::lookForUpgrade() {
  report("Look for an upgrade", controller().productUpgrade());
}

// The helper waits for no answer, so the window may take its time; a dialog that ran a loop of its
// own here would hold back the helper's further calls.
void ProductModel::productWillUpgrade(const clientcomm::Error* error) {
  if (error == nullptr) {
    view_.askForUpgrade();
    return;
  }
  outcome_ = "No upgrade: " + textOf(*error);
  controller().productReadyToUpgrade(false);
  refresh();
}

void ProductModel::answerUpgrade(bool isReady) {
  report(isReady ? "Upgrade now" : "Upgrade later", controller().productReadyToUpgrade(isReady));
}

void ProductModel::fetchErrorPage() {
  pageQuery_ = TQHPHelper::share().netErrorPagePathAsync(
      [this](OSErr status, const OptionalString& path) {
        report("Fetch the error page", status);
        if (path) view_.showPage(*path);
      },
      kPageLimit);
}

}  // namespace sample
