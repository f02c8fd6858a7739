#include "ClientComm/TQHPHelperCommunicate.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPCustomerServiceByHelepr.h"
#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "ClientComm/internal/background_start.h"
#include "ClientComm/internal/guard.h"
#include "ClientComm/internal/helper_installation.h"
#include "ClientComm/internal/host_classes.h"
#include "ClientComm/internal/missing_key.h"
#include "ClientComm/internal/settings_keys.h"
#include "ClientComm/internal/version_order.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/shared_object.h"
#include "ClientComm/platform/strings_file.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/user_defaults.h"

namespace {

using clientcomm::Bundle;
using clientcomm::DiagnosticCause;
using clientcomm::HelperInstallation;
using clientcomm::OptionalString;
using clientcomm::report;
using clientcomm::UserDefaults;
using clientcomm::WaitBudget;

constexpr const char kSuiteInfoSeparator[] = "###";

// Kinds of usage records, as the helper knows them.
constexpr int kCommonCounter = 3;
constexpr int kAutoCreatedCounter = 4;
constexpr int kCustomString = 5;

// How long the start-up waits for other hosts. One that is installing a helper of several hundred
// megabytes is done within it.
constexpr std::chrono::seconds kStartUpWaits{10};

clientcomm::SharedObject<TQHPHelperCommunicate> sharedController;

std::optional<clientcomm::PropertyListValue> optionalValue(const OptionalString& text) {
  if (!text) return std::nullopt;
  return clientcomm::PropertyListValue(*text);
}

OptionalString flagText(bool flag) { return flag ? "1" : "0"; }

std::vector<std::string> componentsSeparatedBy(std::string_view text, std::string_view separator) {
  std::vector<std::string> components;
  for (;;) {
    const std::size_t end = text.find(separator);
    components.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return components;
    text.remove_prefix(end + separator.size());
  }
}

// Missing fields read as nil and 0.
TQHPSuiteInfo suiteInfoFromReply(const OptionalString& reply) {
  if (!reply) return TQHPSuiteInfo::initWithDate(std::nullopt, 0, 0);
  const std::vector<std::string> fields = componentsSeparatedBy(*reply, kSuiteInfoSeparator);
  const auto number = [&](std::size_t index) {
    return index < fields.size() ? clientcomm::intValue(fields[index]) : 0;
  };
  return TQHPSuiteInfo::initWithDate(fields.front(), number(1), number(2));
}

// A query that was answered gives what its synchronous form gives.
template <typename Value, typename Convert>
clientcomm::QueryCallback<std::string> converted(clientcomm::QueryCallback<Value> callback,
                                                 Convert convert) {
  return [callback = std::move(callback), convert](OSErr status, const OptionalString& text) {
    if (!callback) return;
    callback(status, status == clientcomm::noErr ? std::optional<Value>(convert(text))
                                                 : std::optional<Value>());
  };
}

// Whether `dictionary` has `key` already with the truth value `enable`.
bool isStored(const clientcomm::PropertyListDictionary& dictionary, std::string_view key,
              bool enable) {
  const clientcomm::PropertyListValue* const old = clientcomm::valueFor(dictionary, key);
  return old != nullptr && old->boolValue() == enable;
}

void saveToPlistFile(const char* key, bool enable) {
  const OptionalString path =
      TQHPHelperCommunicate::searchPlistFilePath(Bundle::mainBundle().bundlePath());
  if (!path) {
    report(DiagnosticCause::kSwitchFileMissing, Bundle::mainBundle().bundlePath());
    return;
  }
  auto dictionary = clientcomm::dictionaryWithContentsOfFile(*path);
  if (!dictionary || isStored(*dictionary, key, enable)) return;
  dictionary->insert_or_assign(key, enable);
  // The start of the helper writes the switch again.
  std::ignore = clientcomm::writeDictionaryToFile(*dictionary, *path);
}

void saveToStringsFile(const char* key, bool enable) {
  const OptionalString path =
      TQHPHelperCommunicate::searchCurrentStringsFilePath(Bundle::mainBundle().bundlePath());
  auto dictionary = path ? clientcomm::dictionaryWithContentsOfFile(*path) : std::nullopt;
  if (!dictionary) {
    report(DiagnosticCause::kStringTableMissing, path ? *path : Bundle::mainBundle().bundlePath());
    return;
  }
  if (isStored(*dictionary, key, enable)) return;
  dictionary->insert_or_assign(key, *flagText(enable));
  // No status reaches the host; the old value stays.
  clientcomm::writeTextToFileAsUTF16(clientcomm::descriptionInStringsFileFormat(*dictionary), *path)
      .report(DiagnosticCause::kSettingsNotWritten);
}

// The switch as it is in the files now: the localised value before the plain one.
bool effectiveSwitch(const char* key, bool valueWhenAbsent) {
  const auto value = Bundle::mainBundle().objectForInfoDictionaryKey(key);
  return value ? value->boolValue() : valueWhenAbsent;
}

void reportServerClosed() {
  if (!clientcomm::isReporting()) return;
  clientcomm::guarded([] {
    const OptionalString helper = Bundle::mainBundle().infoString(kHelperBundleId);
    clientcomm::reportStatus(DiagnosticCause::kServerClosed, helper ? *helper : std::string_view(),
                             TQHPServerClosed, clientcomm::kHelperServerClosed);
  });
}

// Runs the restart step, then `send`. @return the restart step's status unless it is 0, else
// send's.
template <typename Send>
OSErr sendToRunningHelper(TQHPHelperCommunicate& controller, Send send) {
  const OSErr status = controller.autoRestartHelper();
  return status == clientcomm::noErr ? send() : status;
}

using Self = TQHPHelperCommunicate;

void append(std::vector<clientcomm::Method>& methods, const char* selector,
            std::size_t argumentCount, decltype(clientcomm::Method::invoke) invoke) {
  methods.push_back({selector, argumentCount, invoke});
}

template <auto kFunction>
void add(std::vector<clientcomm::Method>& methods, const char* selector) {
  constexpr clientcomm::Method kMethod = clientcomm::method<kFunction>("");
  append(methods, selector, kMethod.argumentCount, kMethod.invoke);
}

// Every method whose parameters are all strings. Those with a flag, a status or a delegate cannot
// be called by name, as only strings travel. Made by code: the loader would relocate a table of
// them in every process.
void addMethodsOfHelper(std::vector<clientcomm::Method>& methods) {
  add<&Self::startHelper>(methods, "startHelper");
  add<&Self::stopHelper>(methods, "stopHelper");
  add<&Self::isAliveHelper>(methods, "isAliveHelper");
  add<&Self::showHelper>(methods, "showHelper");
  add<&Self::hideHelper>(methods, "hideHelper");
  add<&Self::autoRestartHelper>(methods, "autoRestartHelper");
  add<&Self::getDefaultHelperServerOpen>(methods, "getDefaultHelperServerOpen");
  add<&Self::synthesizeUserDefault>(methods, "synthesizeUserDefault");
  add<&Self::firstStartPID>(methods, "firstStartPID");
  add<&Self::clientIDFormHelper>(methods, "clientIDFormHelper");
  add<&Self::clientID>(methods, "clientID");
  add<&Self::willHelperExit>(methods, "willHelperExit");
  add<&Self::typeOfCharacter>(methods, "typeOfCharacter:");
  add<&Self::splitVersionString>(methods, "splitVersionString:");
  add<&Self::compareVersion>(methods, "compareVersion:toVersion:");
  add<&Self::extractHelper>(methods, "extractHelper");
  add<&Self::launchHelepr>(methods, "launchHelepr");
  add<&Self::appPath>(methods, "appPath:");
}

void addMethodsOfServices(std::vector<clientcomm::Method>& methods) {
  add<&Self::productUpgrade>(methods, "productUpgrade");
  add<&Self::getProductUpgradeDelegate>(methods, "getProductUpgradeDelegate");
  add<&Self::uploadLogByEmail>(methods, "uploadLogByEmail:filePath:title:description:");
  add<&Self::uploadUserFile>(methods, "uploadUserFile:filePath:title:description:");
  add<&Self::uploadProductFile>(methods, "uploadProductFile:filePath:title:description:");
  add<&Self::checkForHeleprMessage>(methods, "checkForHeleprMessage");
  add<&Self::customerserviceByEmail>(methods, "customerserviceByEmail:attachment:");
  add<&Self::commIncreaseDataCollect>(methods, "commIncreaseDataCollect:key:");
  add<&Self::autoCreatedIncreaseDataCollect>(methods, "autoCreatedIncreaseDataCollect:key:");
  add<&Self::customStringDataCollect>(methods, "customStringDataCollect:value:");
  add<&Self::directUploadData>(methods, "directUploadData");
  add<&Self::productCollectStatus>(methods, "productCollectStatus");
  add<&Self::setCollectDataPID>(methods, "setCollectDataPID:");
  add<&Self::collectDataPID>(methods, "collectDataPID");
  add<&Self::initDataCollectionPath>(methods, "initDataCollectionPath:");
  add<&Self::regSuiteInfo>(methods, "regSuiteInfo");
  add<&Self::unRegSuiteInfo>(methods, "unRegSuiteInfo");
  add<&Self::netErrorPagePath>(methods, "netErrorPagePath");
  add<&Self::saveTipsEnable>(methods, "saveTipsEnable");
  add<&Self::saveEnableAD>(methods, "saveEnableAD");
  add<&Self::searchPlistFilePath>(methods, "searchPlistFilePath:");
  add<&Self::searchCurrentStringsFilePath>(methods, "searchCurrentStringsFilePath:");
}

std::vector<clientcomm::Method> callableMethods() {
  std::vector<clientcomm::Method> methods;
  addMethodsOfHelper(methods);
  addMethodsOfServices(methods);
  return methods;
}

}  // namespace

const clientcomm::Class& TQHPHelperCommunicate::staticClass() {
  // Calls reach the one controller. None is made for a call: that would run the whole start-up, in
  // the middle of an event.
  const auto existing = [] {
    return std::shared_ptr<clientcomm::Object>(std::shared_ptr<void>(),
                                               sharedController.existing());
  };
  static const auto* const cls =
      new clientcomm::Class("TQHPHelperCommunicate", existing, callableMethods());
  return *cls;
}

TQHPHelperCommunicate& TQHPHelperCommunicate::share() {
  if (TQHPHelperCommunicate* const controller = sharedController.existing()) return *controller;
  TQHPHelperCommunicate& made = sharedController.get([] { return new TQHPHelperCommunicate; });
  // In place before the start-up runs, so that whatever the start-up calls finds this one.
  made.init();
  return made;
}

TQHPHelperCommunicate& TQHPHelperCommunicate::shareAsync(clientcomm::StartUpCallback callback) {
  const bool isFirst = sharedController.existing() == nullptr;
  TQHPHelperCommunicate& controller =
      sharedController.get([] { return new TQHPHelperCommunicate; });
  clientcomm::guarded([&] {
    if (isFirst) controller.identify();
    controller.startInBackground(std::move(callback));
  });
  return controller;
}

// After a start-up that blocked, this one finds nothing left to do.
void TQHPHelperCommunicate::startInBackground(clientcomm::StartUpCallback callback) {
  if (!background_) {
    background_ = std::make_unique<clientcomm::BackgroundStart>(productID_, productVersion_,
                                                                [this] { return isAliveHelper(); });
    background_->begin();
  }
  background_->whenOver(std::move(callback));
}

void TQHPHelperCommunicate::identify() {
  clientcomm::registerHostClasses();
  isHelperAlive_ = false;
  TQHPHelperControl::share().setHelperCtrlDelegate(this);
  synthesizeUserDefault();
}

void TQHPHelperCommunicate::init() {
  clientcomm::guarded([this] {
    identify();
    const WaitBudget waits(kStartUpWaits);
    extract(waits);
    launch(waits);
  });
}

// --- The helper's life ---

OSErr TQHPHelperCommunicate::startHelper() {
  const OSErr status = TQHPHelperControl::share().start(productID_, productVersion_);
  if (status == clientcomm::noErr) {
    isHelperAlive_ = true;
    startedProcess_ = clientcomm::AELastRecipient();
  }
  firstStartPID();
  if (background_) {
    clientIDQuery_ = clientIDFormHelperAsync(nullptr);
  } else {
    clientIDFormHelper();
  }
  saveTipsEnable();
  saveEnableAD();
  return status;
}

OSErr TQHPHelperCommunicate::stopHelper() {
  const OSErr status = TQHPHelperControl::share().stop(productID_, productVersion_);
  isHelperAlive_ = false;
  return status;
}

OSErr TQHPHelperCommunicate::isAliveHelper() {
  const OSErr status = TQHPHelperControl::share().isAlive(productID_, productVersion_);
  if (status != clientcomm::noErr) return status;
  if (clientcomm::AELastRecipient() != startedProcess_) isHelperAlive_ = false;
  if (!isHelperAlive_) startHelper();
  return status;
}

OSErr TQHPHelperCommunicate::showHelper() {
  return sendToRunningHelper(
      *this, [&] { return TQHPHelperControl::share().show(productID_, productVersion_); });
}

OSErr TQHPHelperCommunicate::hideHelper() {
  return sendToRunningHelper(
      *this, [&] { return TQHPHelperControl::share().hide(productID_, productVersion_); });
}

OSErr TQHPHelperCommunicate::autoRestartHelper() {
  if (!getDefaultHelperServerOpen()) {
    reportServerClosed();
    return clientcomm::kHelperServerClosed;
  }
  if (background_) {
    return clientcomm::guarded(clientcomm::kHelperNotLaunched,
                               [this] { return background_->restart(); });
  }
  if (isInstallationPending_) extract(WaitBudget::none());
  if (isAliveHelper() == clientcomm::noErr) return clientcomm::noErr;
  return launchHelepr() ? clientcomm::noErr : clientcomm::kHelperNotLaunched;
}

bool TQHPHelperCommunicate::getDefaultHelperServerOpen() {
  return clientcomm::guarded(true, [] {
    const OptionalString helper = Bundle::mainBundle().infoString(kHelperBundleId);
    if (!helper) return true;
    const auto domain = UserDefaults::standardUserDefaults().persistentDomainForName(*helper);
    return !domain || !clientcomm::flagFor(*domain, TQHPServerClosed);
  });
}

void TQHPHelperCommunicate::willHelperExit() { stopHelper(); }

void TQHPHelperCommunicate::didCheckServerOpen(bool isOpen, const clientcomm::Error* /*error*/) {
  isServerOpen_ = isOpen;
}

// --- The product's identity ---

void TQHPHelperCommunicate::synthesizeUserDefault() {
  clientcomm::guarded([this] {
    const Bundle& host = Bundle::mainBundle();
    productID_ = host.infoString(clientcomm::kPIDKey);
    productVersion_ = host.infoString(clientcomm::kCFBundleVersionKey);
    if (!productID_) clientcomm::reportMissingKey(clientcomm::kPIDKey);
    if (!productVersion_) clientcomm::reportMissingKey(clientcomm::kCFBundleVersionKey);
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    defaults.setObject(optionalValue(productID_), clientcomm::kPIDKey);
    defaults.setObject(optionalValue(productVersion_), clientcomm::kVersionKey);
    defaults.setObject(clientcomm::PropertyListValue(host.bundlePath()),
                       clientcomm::kExecutableFileKey);
    std::ignore = defaults.synchronize();  // what is not written stays pending
  });
}

OptionalString TQHPHelperCommunicate::firstStartPID() {
  return clientcomm::guarded(OptionalString(), [] {
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    const auto isFirstStart = defaults.objectForKey(KIsFirstStart);
    if (isFirstStart && !isFirstStart->boolValue()) return defaults.stringForKey(KFirstStartPID);
    OptionalString productID = Bundle::mainBundle().infoString(clientcomm::kPIDKey);
    defaults.setObject(clientcomm::PropertyListValue(false), KIsFirstStart);
    defaults.setObject(optionalValue(productID), KFirstStartPID);
    std::ignore = defaults.synchronize();  // what is not written stays pending
    return productID;
  });
}

OptionalString TQHPHelperCommunicate::clientIDFormHelper() {
  return clientcomm::guarded(OptionalString(), [this] {
    clientID_.reset();
    clientID_ = TQHPGetDataByHelper().clientIDFormHelper();
    return clientID_;
  });
}

clientcomm::PendingQuery TQHPHelperCommunicate::clientIDFormHelperAsync(
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return clientcomm::guarded(clientcomm::PendingQuery(), [&] {
    const auto keep = [this, callback = std::move(callback)](OSErr status,
                                                             const OptionalString& clientID) {
      clientID_ = clientID;
      if (callback) callback(status, clientID);
    };
    return TQHPGetDataByHelper().clientIDFormHelperAsync(keep, limit);
  });
}

const OptionalString& TQHPHelperCommunicate::clientID() const { return clientID_; }

// --- Installation ---

void TQHPHelperCommunicate::extractHelper() { extract(WaitBudget::none()); }

void TQHPHelperCommunicate::extract(const WaitBudget& waits) {
  clientcomm::guarded([&] {
    HelperInstallation installation(productID_, productVersion_, waits);
    installation.extract();
    isInstallationPending_ = installation.isPending();
  });
}

bool TQHPHelperCommunicate::launchHelepr() { return launch(WaitBudget::none()); }

bool TQHPHelperCommunicate::launch(const WaitBudget& waits) {
  return clientcomm::guarded(false, [&] {
    HelperInstallation installation(productID_, productVersion_, waits);
    const bool isRunning = installation.launch();
    isInstallationPending_ = isInstallationPending_ || installation.isPending();
    if (!isRunning) return false;
    isServerOpen_ = getDefaultHelperServerOpen();
    if (startHelper() != clientcomm::noErr) HelperInstallation::explainUnreachable();
    return true;
  });
}

OptionalString TQHPHelperCommunicate::appPath(const std::string& directory) {
  return clientcomm::guarded(OptionalString(), [&]() -> OptionalString {
    for (const std::string& name : clientcomm::contentsOfDirectoryAtPath(directory)) {
      if (clientcomm::pathExtension(name) == clientcomm::kApplicationExtension) {
        return clientcomm::stringByAppendingPathComponent(directory, name);
      }
    }
    return std::nullopt;
  });
}

int TQHPHelperCommunicate::typeOfCharacter(std::string_view text) {
  // A dot counts only by itself; every other text counts by its first character.
  clientcomm::VersionComponent first{};
  clientcomm::VersionReader(text).next(first);
  const bool isDotFollowedByMore =
      first.type == clientcomm::VersionComponentType::kDot && text.size() > 1;
  return static_cast<int>(isDotFollowedByMore ? clientcomm::VersionComponentType::kOther
                                              : first.type);
}

std::vector<std::string> TQHPHelperCommunicate::splitVersionString(const OptionalString& version) {
  return clientcomm::guarded(std::vector<std::string>(), [&] {
    std::vector<std::string> components;
    clientcomm::VersionReader reader(version ? std::string_view(*version) : std::string_view());
    for (clientcomm::VersionComponent component; reader.next(component);) {
      components.emplace_back(component.text);
    }
    return components;
  });
}

int TQHPHelperCommunicate::compareVersion(const OptionalString& version,
                                          const OptionalString& toVersion) {
  const auto text = [](const OptionalString& value) {
    return value ? std::string_view(*value) : std::string_view();
  };
  return clientcomm::compareVersionStrings(text(version), text(toVersion));
}

// --- Upgrade ---

OSErr TQHPHelperCommunicate::productUpgrade() {
  return sendToRunningHelper(*this, [&] {
    return TQHPUpgradeByHelper::share().productUpgrade(productID_, productVersion_);
  });
}

OSErr TQHPHelperCommunicate::productReadyToUpgrade(bool ready) {
  return TQHPUpgradeByHelper::share().productReadyToUpgrade(productID_, productVersion_,
                                                            flagText(ready));
}

void TQHPHelperCommunicate::setProductUpgradeDelegate(
    TQHPProductUpgradeCallBackDelegate* delegate) {
  TQHPUpgradeByHelper::share().setProductUpgradeDelegate(delegate);
}

TQHPProductUpgradeCallBackDelegate* TQHPHelperCommunicate::getProductUpgradeDelegate() {
  return TQHPUpgradeByHelper::share().getProductUpgradeDelegate();
}

// --- Uploads and customer service ---

OSErr TQHPHelperCommunicate::uploadLogByEmail(const OptionalString& email,
                                              const OptionalString& filePath,
                                              const OptionalString& title,
                                              const OptionalString& description) {
  return sendToRunningHelper(*this, [&] {
    return TQHPUploadByHelper::share().uploadLog(productID_, productVersion_, email, filePath,
                                                 title, description);
  });
}

OSErr TQHPHelperCommunicate::uploadUserFile(const OptionalString& email,
                                            const OptionalString& filePath,
                                            const OptionalString& title,
                                            const OptionalString& description) {
  return sendToRunningHelper(*this, [&] {
    return TQHPUploadByHelper::share().uploadUserFile(productID_, productVersion_, email, filePath,
                                                      title, description);
  });
}

OSErr TQHPHelperCommunicate::uploadProductFile(const OptionalString& email,
                                               const OptionalString& filePath,
                                               const OptionalString& title,
                                               const OptionalString& description) {
  return TQHPUploadByHelper::share().uploadProductFile(productID_, productVersion_, email, filePath,
                                                       title, description);
}

OSErr TQHPHelperCommunicate::checkForHeleprMessage() {
  return sendToRunningHelper(*this, [&] {
    return TQHPCustomerServiceByHelepr::share().checkForHeleprMessage(productID_, productVersion_);
  });
}

OSErr TQHPHelperCommunicate::customerserviceByEmail(const OptionalString& email,
                                                    const OptionalString& attachment) {
  return sendToRunningHelper(*this, [&] {
    return TQHPCustomerServiceByHelepr::share().customerService(productID_, productVersion_, email,
                                                                attachment);
  });
}

// --- Usage data ---

OSErr TQHPHelperCommunicate::commIncreaseDataCollect(const OptionalString& target,
                                                     const OptionalString& key) {
  return TQHPUploadByHelper::share().collectData(collectDataPID(), productVersion_, kCommonCounter,
                                                 target, key, "");
}

OSErr TQHPHelperCommunicate::autoCreatedIncreaseDataCollect(const OptionalString& target,
                                                            const OptionalString& key) {
  return TQHPUploadByHelper::share().collectData(collectDataPID(), productVersion_,
                                                 kAutoCreatedCounter, target, key, "");
}

OSErr TQHPHelperCommunicate::customStringDataCollect(const OptionalString& target,
                                                     const OptionalString& value) {
  return TQHPUploadByHelper::share().collectData(collectDataPID(), productVersion_, kCustomString,
                                                 target, "", value);
}

OSErr TQHPHelperCommunicate::directUploadData() {
  return TQHPUploadByHelper::share().directUploadData(collectDataPID(), productVersion_);
}

OSErr TQHPHelperCommunicate::setProductCollectStatus(bool status) {
  return TQHPUploadByHelper::share().setProductCollectStatus(productID_, productVersion_,
                                                             flagText(status));
}

bool TQHPHelperCommunicate::productCollectStatus() {
  return TQHPUploadByHelper::share().productCollectStatus(productID_, productVersion_) == "1";
}

clientcomm::PendingQuery TQHPHelperCommunicate::productCollectStatusAsync(
    clientcomm::QueryCallback<bool> callback, clientcomm::TimeLimit limit) {
  return clientcomm::guarded(clientcomm::PendingQuery(), [&] {
    const auto isOn = [](const OptionalString& reply) { return reply == "1"; };
    return TQHPUploadByHelper::share().productCollectStatusAsync(
        productID_, productVersion_, converted(std::move(callback), isOn), limit);
  });
}

void TQHPHelperCommunicate::setCollectDataPID(const OptionalString& productID) {
  clientcomm::guarded([&] {
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    defaults.setObject(optionalValue(productID), KDataCollectPID);
    std::ignore = defaults.synchronize();  // what is not written stays pending
  });
}

OptionalString TQHPHelperCommunicate::collectDataPID() {
  return clientcomm::guarded(OptionalString(), [this] {
    OptionalString productID = UserDefaults::standardUserDefaults().stringForKey(KDataCollectPID);
    return productID && !productID->empty() ? productID : firstStartPID();
  });
}

void TQHPHelperCommunicate::initDataCollectionPath(const OptionalString& basePath) {
  clientcomm::guarded([&] {
    if (!basePath || !basePath->starts_with('/')) {
      report(DiagnosticCause::kDataFolderRefused, basePath.value_or(""));
      return;
    }
    const std::string log = clientcomm::stringByAppendingPathComponent(*basePath, "Log");
    // Where it fails, the folder in it cannot be made either.
    if (!clientcomm::fileExistsAtPath(log)) clientcomm::makeDirectoryAtPath(log).ignore();
    const std::string data = clientcomm::stringByAppendingPathComponent(log, "Data");
    if (clientcomm::fileExistsAtPath(data)) return;
    UserDefaults::standardUserDefaults().setObject(clientcomm::PropertyListValue(data),
                                                   DataCollectPathKey);
    clientcomm::makeDirectoryAtPath(data).report(
        DiagnosticCause::kDataFolderNotMade);  // the path is recorded all the same
  });
}

// --- Suite information and network-error page ---

TQHPSuiteInfo TQHPHelperCommunicate::regSuiteInfo() {
  return clientcomm::guarded(TQHPSuiteInfo::initWithDate(std::nullopt, 0, 0), [this] {
    return suiteInfoFromReply(
        TQHPUploadByHelper::share().regSuiteInfo(productID_, productVersion_));
  });
}

TQHPSuiteInfo TQHPHelperCommunicate::unRegSuiteInfo() {
  return clientcomm::guarded(TQHPSuiteInfo::initWithDate(std::nullopt, 0, 0), [this] {
    return suiteInfoFromReply(
        TQHPUploadByHelper::share().unRegSuiteInfo(productID_, productVersion_));
  });
}

OptionalString TQHPHelperCommunicate::netErrorPagePath() {
  return TQHPUploadByHelper::share().netErrorPagePath(productID_, productVersion_);
}

clientcomm::PendingQuery TQHPHelperCommunicate::regSuiteInfoAsync(
    clientcomm::QueryCallback<TQHPSuiteInfo> callback, clientcomm::TimeLimit limit) {
  return clientcomm::guarded(clientcomm::PendingQuery(), [&] {
    return TQHPUploadByHelper::share().regSuiteInfoAsync(
        productID_, productVersion_, converted(std::move(callback), suiteInfoFromReply), limit);
  });
}

clientcomm::PendingQuery TQHPHelperCommunicate::unRegSuiteInfoAsync(
    clientcomm::QueryCallback<TQHPSuiteInfo> callback, clientcomm::TimeLimit limit) {
  return clientcomm::guarded(clientcomm::PendingQuery(), [&] {
    return TQHPUploadByHelper::share().unRegSuiteInfoAsync(
        productID_, productVersion_, converted(std::move(callback), suiteInfoFromReply), limit);
  });
}

clientcomm::PendingQuery TQHPHelperCommunicate::netErrorPagePathAsync(
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return TQHPUploadByHelper::share().netErrorPagePathAsync(productID_, productVersion_,
                                                           std::move(callback), limit);
}

// --- Tips and advertising switches ---

void TQHPHelperCommunicate::setTipsEnable(bool enable) {
  saveTipsEnableToPlistFile(enable);
  saveTipsEnableTostringsFile(enable);
}

void TQHPHelperCommunicate::setEnableAD(bool enable) {
  saveEnableADToPlistFile(enable);
  saveEnableADToStringsFile(enable);
}

void TQHPHelperCommunicate::saveTipsEnable() {
  clientcomm::guarded(
      [this] { saveTipsEnableToPlistFile(effectiveSwitch(clientcomm::kTipsEnableKey, true)); });
}

void TQHPHelperCommunicate::saveEnableAD() {
  clientcomm::guarded(
      [this] { saveEnableADToPlistFile(effectiveSwitch(clientcomm::kEnableADKey, false)); });
}

void TQHPHelperCommunicate::saveTipsEnableToPlistFile(bool enable) {
  clientcomm::guarded([&] { saveToPlistFile(clientcomm::kTipsEnableKey, enable); });
}

void TQHPHelperCommunicate::saveEnableADToPlistFile(bool enable) {
  clientcomm::guarded([&] { saveToPlistFile(clientcomm::kEnableADKey, enable); });
}

void TQHPHelperCommunicate::saveTipsEnableTostringsFile(bool enable) {
  clientcomm::guarded([&] { saveToStringsFile(clientcomm::kTipsEnableKey, enable); });
}

void TQHPHelperCommunicate::saveEnableADToStringsFile(bool enable) {
  clientcomm::guarded([&] { saveToStringsFile(clientcomm::kEnableADKey, enable); });
}

OptionalString TQHPHelperCommunicate::searchPlistFilePath(const OptionalString& bundlePath) {
  return clientcomm::guarded(OptionalString(), [&]() -> OptionalString {
    if (!bundlePath) return std::nullopt;
    const std::string contents =
        clientcomm::stringByAppendingPathComponent(*bundlePath, clientcomm::kContentsFolder);
    for (const std::string& name : clientcomm::contentsOfDirectoryAtPath(contents)) {
      if (clientcomm::pathExtension(name) == clientcomm::kPropertyListExtension) {
        return clientcomm::stringByAppendingPathComponent(contents, name);
      }
    }
    return std::nullopt;
  });
}

OptionalString TQHPHelperCommunicate::searchCurrentStringsFilePath(
    const OptionalString& bundlePath) {
  return clientcomm::guarded(OptionalString(), [&]() -> OptionalString {
    if (!bundlePath) return std::nullopt;
    const std::string resources =
        clientcomm::stringByAppendingPathComponent(*bundlePath, clientcomm::kResourcesFolder);
    const std::string language = Bundle::mainBundle().preferredLocalizations().front();
    const OptionalString folder =
        Bundle(resources).pathForResource(language, clientcomm::kLocalizationExtension);
    if (!folder) return std::nullopt;
    for (const std::string& name : clientcomm::contentsOfDirectoryAtPath(*folder)) {
      if (clientcomm::pathExtension(name) != clientcomm::kStringsExtension) continue;
      const std::string path = clientcomm::stringByAppendingPathComponent(*folder, name);
      const auto table = clientcomm::dictionaryWithContentsOfFile(path);
      // One table holds both switches: the one with the tips.
      if (table && table->contains(clientcomm::kTipsEnableKey)) return path;
    }
    return clientcomm::stringByAppendingPathComponent(*folder, "InfoPlist.strings");
  });
}
