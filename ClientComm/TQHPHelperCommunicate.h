#pragma once

/// @file
/// The controller, and the keys of the settings that it keeps.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPSuiteInfo.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "ClientComm/async.h"

namespace clientcomm {

class BackgroundStart;
class WaitBudget;

}  // namespace clientcomm

/// Key in the user defaults: the folder of the product's usage data.
inline constexpr const char DataCollectPathKey[] = "DataCollectPath";
/// Key in the user defaults: whether the product has been started before.
inline constexpr const char KIsFirstStart[] = "IsFirstStart";
/// Key in the user defaults: the product ID of the first start ever.
inline constexpr const char KFirstStartPID[] = "FirstStartPID";
/// Key in the user defaults: the product ID under which usage records are filed.
inline constexpr const char KDataCollectPID[] = "DataCollectPID";

/// Key in the helper's preferences: true while the helper's server is closed.
inline constexpr const char TQHPServerClosed[] = "TQHPServerClosed";

/// Holds the product's identity and the helper's state; every service goes through it.
///
/// For one thread; see TQHPHelper. No method throws. Commands return as soon as the event is handed
/// over; queries block, without limit, until the helper answers or ends.
class CLIENTCOMM_EXPORT TQHPHelperCommunicate : public TQHPAppEventBase,
                                                public TQHPHelperControlCallBackDelegate {
 public:
  /// The controller. Its creation records the product in the user defaults, and installs, launches
  /// and starts the helper.
  static TQHPHelperCommunicate& share();

  /// The controller; see `TQHPHelper::shareAsync`.
  static TQHPHelperCommunicate& shareAsync(clientcomm::StartUpCallback callback = nullptr);

  /// The class by which the process's registry knows it.
  static const clientcomm::Class& staticClass();
  const clientcomm::Class& isa() const override { return staticClass(); }

  // --- The helper's life ---

  /// Sends the start command, then records the first start, fetches the client ID and brings the
  /// settings files into line. @return the start command's status.
  OSErr startHelper();
  /// Sends the stop command. @return its status.
  OSErr stopHelper();
  /// Asks whether the helper runs, and starts it for this product where that is still owed.
  /// @return 0 when it runs, else the send's own status.
  OSErr isAliveHelper();
  /// Shows the helper; makes sure first that it runs.
  /// @return 10, 1, or the send's own status.
  OSErr showHelper();
  /// Hides the helper; makes sure first that it runs.
  /// @return 10, 1, or the send's own status.
  OSErr hideHelper();
  /// Makes sure that the helper runs and has been started for this product.
  /// @return 0; 10 when its server is marked closed; 1 when it could not be launched.
  OSErr autoRestartHelper();
  /// Whether the helper's server is open, by the helper's own preferences.
  bool getDefaultHelperServerOpen();
  /// Whether `status` says that the helper's server is closed.
  bool isHelperSeverNotOpen(OSErr status) const {
    return status == clientcomm::kHelperServerClosed;
  }

  // --- The product's identity ---

  /// Reads the product ID and version, and records the product in the user defaults.
  void synthesizeUserDefault();
  /// The product ID of the first start ever, recorded on first use.
  clientcomm::OptionalString firstStartPID();
  /// Asks the helper for the client ID and keeps it. @return nil when there is no answer.
  clientcomm::OptionalString clientIDFormHelper();
  /// The same without blocking; see ClientComm/async.h. The ID is kept when the outcome comes
  /// (nil without an answer); until then, and where the query is cancelled, the former one stays.
  [[nodiscard]] clientcomm::PendingQuery clientIDFormHelperAsync(
      clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit = std::nullopt);
  /// The client ID kept last.
  const clientcomm::OptionalString& clientID() const;

  // --- Installation ---

  /// Installs the helper from the host's bundle, or replaces an older installed copy.
  void extractHelper();
  /// Makes sure that the installed helper exists and runs, and starts it for this product.
  bool launchHelepr();
  /// Full path of the first entry of `directory` with the extension "app"; nil when there is none.
  /// Part of the interface since the system's first platform; the library itself has no use for it.
  static clientcomm::OptionalString appPath(const std::string& directory);

  /// 2 for ".", 0 when `text` begins with a decimal digit, else 1. `text` must not be empty.
  static int typeOfCharacter(std::string_view text);
  /// Cuts a version into runs of digits, runs of other characters, and single dots.
  static std::vector<std::string> splitVersionString(const clientcomm::OptionalString& version);
  /// @return 1 when `version` is newer than `toVersion`, -1 when older, 0 when equal. nil reads "".
  static int compareVersion(const clientcomm::OptionalString& version,
                            const clientcomm::OptionalString& toVersion);

  // --- Upgrade ---

  /// Asks the helper to look for an upgrade and carry it out; makes sure first that it runs.
  /// @return 10, 1, or the send's own status.
  OSErr productUpgrade();
  /// Answers `productWillUpgrade` of the delegate. @return the send's own status.
  OSErr productReadyToUpgrade(bool ready);
  /// Sets the host's listener for upgrades. It is not kept alive: set null, or another one, before
  /// it is destroyed. Null drops the call-backs.
  void setProductUpgradeDelegate(TQHPProductUpgradeCallBackDelegate* delegate);
  /// The host's listener for upgrades, or null.
  TQHPProductUpgradeCallBackDelegate* getProductUpgradeDelegate();

  // --- Uploads and customer service; paths and texts are passed on untouched ---

  /// Has the helper upload a log file; makes sure first that it runs.
  /// @return 10, 1, or the send's own status.
  OSErr uploadLogByEmail(const clientcomm::OptionalString& email,
                         const clientcomm::OptionalString& filePath,
                         const clientcomm::OptionalString& title,
                         const clientcomm::OptionalString& description);
  /// Has the helper upload a file of the user; makes sure first that it runs.
  /// @return 10, 1, or the send's own status.
  OSErr uploadUserFile(const clientcomm::OptionalString& email,
                       const clientcomm::OptionalString& filePath,
                       const clientcomm::OptionalString& title,
                       const clientcomm::OptionalString& description);
  /// Has the helper upload a file of the product. The helper is not launched for this.
  /// @return the send's own status.
  OSErr uploadProductFile(const clientcomm::OptionalString& email,
                          const clientcomm::OptionalString& filePath,
                          const clientcomm::OptionalString& title,
                          const clientcomm::OptionalString& description);
  /// Has the helper look for messages from customer service; makes sure first that it runs.
  /// @return 10, 1, or the send's own status.
  OSErr checkForHeleprMessage();
  /// Sends a request to customer service with the file at `attachment`; makes sure first that the
  /// helper runs.
  /// @return 10, 1, or the send's own status.
  OSErr customerserviceByEmail(const clientcomm::OptionalString& email,
                               const clientcomm::OptionalString& attachment);

  // --- Usage data ---

  /// Counts one use of `target`'s `key`, a counter known to the helper.
  /// @return the send's own status.
  OSErr commIncreaseDataCollect(const clientcomm::OptionalString& target,
                                const clientcomm::OptionalString& key);
  /// Counts one use of `target`'s `key`, a counter that the helper makes on first use.
  /// @return the send's own status.
  OSErr autoCreatedIncreaseDataCollect(const clientcomm::OptionalString& target,
                                       const clientcomm::OptionalString& key);
  /// Files the text `value` under `target`. @return the send's own status.
  OSErr customStringDataCollect(const clientcomm::OptionalString& target,
                                const clientcomm::OptionalString& value);
  /// Has the usage data collected so far uploaded at once. @return the send's own status.
  OSErr directUploadData();
  /// Switches the collection of usage data for the product. @return the send's own status.
  OSErr setProductCollectStatus(bool status);
  /// Whether usage data is collected for the product; blocks until the helper answers.
  bool productCollectStatus();
  /// The same without blocking; see ClientComm/async.h.
  [[nodiscard]] clientcomm::PendingQuery productCollectStatusAsync(
      clientcomm::QueryCallback<bool> callback, clientcomm::TimeLimit limit = std::nullopt);
  /// Stores the product ID under which usage records are filed.
  void setCollectDataPID(const clientcomm::OptionalString& productID);
  /// The product ID under which usage records are filed; the first-start ID where none was set.
  clientcomm::OptionalString collectDataPID();
  /// Makes Log/Data under `basePath` and records it in the user defaults, unless it exists. A
  /// `basePath` that does not begin with "/" is refused: nothing is made or recorded, since the
  /// helper has another current folder.
  void initDataCollectionPath(const clientcomm::OptionalString& basePath);

  // --- Suite information and network-error page; block until the helper answers ---

  /// The suite page of a registered product. Without an answer the record is empty.
  TQHPSuiteInfo regSuiteInfo();
  /// The suite page of a product that is not registered. Without an answer the record is empty.
  TQHPSuiteInfo unRegSuiteInfo();
  /// Path of the page to show when the network cannot be reached; nil without an answer.
  clientcomm::OptionalString netErrorPagePath();
  /// `regSuiteInfo` without blocking; see ClientComm/async.h.
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

  // --- Tips and advertising switches in the host bundle's files ---

  /// Switches the product's tips in both files. A file that cannot be written stays as it is.
  void setTipsEnable(bool enable);
  /// Switches advertising in both files. A file that cannot be written stays as it is.
  void setEnableAD(bool enable);
  /// Writes the effective "TipsEnable", true where none is set, into the property list.
  void saveTipsEnable();
  /// Writes the effective "EnableAD", false where none is set, into the property list.
  void saveEnableAD();
  /// Writes "TipsEnable" into the first property list of the bundle.
  void saveTipsEnableToPlistFile(bool enable);
  /// Writes "EnableAD" into the first property list of the bundle.
  void saveEnableADToPlistFile(bool enable);
  /// Writes "TipsEnable" into the string table of the current localisation.
  void saveTipsEnableTostringsFile(bool enable);
  /// Writes "EnableAD" into the string table of the current localisation.
  void saveEnableADToStringsFile(bool enable);
  /// The first property list in the bundle's Contents folder; nil when there is none.
  static clientcomm::OptionalString searchPlistFilePath(
      const clientcomm::OptionalString& bundlePath);
  /// The string table of the current localisation; nil when it has no folder.
  static clientcomm::OptionalString searchCurrentStringsFilePath(
      const clientcomm::OptionalString& bundlePath);

  // --- TQHPHelperControlCallBackDelegate ---

  void willHelperExit() override;
  void didCheckServerOpen(bool isOpen, const clientcomm::Error* error) override;

 private:
  TQHPHelperCommunicate() = default;
  CLIENTCOMM_LOCAL void init();
  CLIENTCOMM_LOCAL void identify();
  CLIENTCOMM_LOCAL void startInBackground(clientcomm::StartUpCallback callback);
  CLIENTCOMM_LOCAL void extract(const clientcomm::WaitBudget& waits);
  CLIENTCOMM_LOCAL bool launch(const clientcomm::WaitBudget& waits);

  clientcomm::OptionalString productID_;
  clientcomm::OptionalString productVersion_;
  /// The helper's last known server state. Kept from the system's first platform; never read.
  bool isServerOpen_ = false;
  bool isHelperAlive_ = false;
  /// Which process took the start command; another one, launched by another host, still lacks it.
  std::uint64_t startedProcess_ = 0;
  clientcomm::OptionalString clientID_;
  /// What the installation left for the next restart step.
  bool isInstallationPending_ = false;
  /// Null where the restart step may block.
  std::unique_ptr<clientcomm::BackgroundStart> background_;
  /// That of the start command, where it does not block.
  clientcomm::PendingQuery clientIDQuery_;
};
