#pragma once

#include <memory>
#include <string>

#include "ClientComm/TQHPSuiteInfo.h"
#include "ClientComm/TQHPTypes.h"
#include "ClientComm/async.h"

namespace clientcomm {
class Timer;
}
class TQHPHelperCommunicate;

/// A product's entry to its helper. The first `share()` installs, launches and starts the helper;
/// from then on a timer on the calling thread's run loop makes sure, every 5 seconds, that it runs
/// and has been started for this product. For one thread, the one that uses the library first. No
/// method throws.
class CLIENTCOMM_EXPORT TQHPHelper {
 public:
  /// The one object, made on first use and never destroyed. The first use blocks while the helper
  /// is installed and launched.
  static TQHPHelper& share();

  /// The same without blocking, for a host that draws a window: returns at once, and installs,
  /// launches and starts the helper while the event loop runs. From then on, also after `share()`,
  /// no tick and no command waits for the helper, not even for one that is stopped: a command that
  /// the helper cannot take at once returns -1712, or -600 while it starts. Queries keep both their
  /// forms. While the installation copies, the library has a thread.
  /// @param callback is called once, by the event loop, when the start-up is over: with 0 when the
  ///        helper has been started, or 1 when it could not be; the ticks try again.
  static TQHPHelper& shareAsync(clientcomm::StartUpCallback callback = nullptr);

  TQHPHelper(const TQHPHelper&) = delete;
  TQHPHelper& operator=(const TQHPHelper&) = delete;

  /// Makes sure that the helper runs and has been started; each timer tick calls it.
  void startHelper();
  /// Tells the helper that the product no longer needs it; the timer starts it again within
  /// 5 seconds, unless it has marked its server closed.
  void stopHelper();
  /// The timer's callback; does nothing for any timer but the library's own.
  void autoautoStartIntervaTimerMethod(const clientcomm::Timer* timer);

  /// Counts one use of `target`'s `key`, a counter known to the helper.
  void commIncreaseDataCollect(const clientcomm::OptionalString& target,
                               const clientcomm::OptionalString& key);
  /// Counts one use of `target`'s `key`, a counter that the helper makes on first use.
  void autoCreatedIncreaseDataCollect(const clientcomm::OptionalString& target,
                                      const clientcomm::OptionalString& key);
  /// Files the text `value` under `target`.
  void customStringDataCollect(const clientcomm::OptionalString& target,
                               const clientcomm::OptionalString& value);
  /// Switches the collection of usage data for this product.
  void setProductCollectStatus(bool status);
  /// Whether usage data is collected for this product; blocks until the helper answers.
  bool productCollectStatus();
  /// Has the usage data collected so far uploaded at once.
  void directUploadData();
  /// Sets the product ID under which usage data is filed; nil and "" are ignored.
  void setDataCollectPID(const clientcomm::OptionalString& productID);

  /// The suite page of a registered product; blocks until the helper answers. Without an answer the
  /// record is empty.
  TQHPSuiteInfo regSuiteInfo();
  /// The suite page of a product that is not registered, in the same way.
  TQHPSuiteInfo unRegSuiteInfo();
  /// Path of the page to show when the network cannot be reached; nil without an answer.
  clientcomm::OptionalString netErrorPagePath();

  /// `productCollectStatus` without blocking; see ClientComm/async.h.
  [[nodiscard]] clientcomm::PendingQuery productCollectStatusAsync(
      clientcomm::QueryCallback<bool> callback, clientcomm::TimeLimit limit = std::nullopt);
  /// `regSuiteInfo` without blocking.
  [[nodiscard]] clientcomm::PendingQuery regSuiteInfoAsync(
      clientcomm::QueryCallback<TQHPSuiteInfo> callback,
      clientcomm::TimeLimit limit = std::nullopt);
  /// `unRegSuiteInfo` without blocking.
  [[nodiscard]] clientcomm::PendingQuery unRegSuiteInfoAsync(
      clientcomm::QueryCallback<TQHPSuiteInfo> callback,
      clientcomm::TimeLimit limit = std::nullopt);
  /// `netErrorPagePath` without blocking.
  [[nodiscard]] clientcomm::PendingQuery netErrorPagePathAsync(
      clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit = std::nullopt);

  /// Switches the product's tips, in the host bundle's settings files.
  void setTipsEnable(bool enable);

  /// Hands a file of the product to the helper; the path is passed on untouched.
  /// @return 0 when handed over, else the send's own status; the helper is not launched for this.
  OSErr uploadProductFile(const clientcomm::OptionalString& email,
                          const clientcomm::OptionalString& filePath,
                          const clientcomm::OptionalString& title,
                          const clientcomm::OptionalString& description);

 private:
  TQHPHelper() = default;
  CLIENTCOMM_LOCAL ~TQHPHelper();
  CLIENTCOMM_LOCAL void init();

  TQHPHelperCommunicate* cmmt_ = nullptr;
  std::unique_ptr<clientcomm::Timer> autoStartTimer_;
};
