// One use of every declaration of the installed headers; public functions of classes may be left
// out. Never runs: that it links is the test.
#include <ClientComm/TQHPAppEventBase.h>
#include <ClientComm/TQHPAppleEventProcesser.h>
#include <ClientComm/TQHPAppleEventSender.h>
#include <ClientComm/TQHPCustomerServiceByHelepr.h>
#include <ClientComm/TQHPGetDataByHelper.h>
#include <ClientComm/TQHPHelper.h>
#include <ClientComm/TQHPHelperCommunicate.h>
#include <ClientComm/TQHPHelperControl.h>
#include <ClientComm/TQHPHelperError.h>
#include <ClientComm/TQHPProcessList.h>
#include <ClientComm/TQHPSuiteInfo.h>
#include <ClientComm/TQHPTypes.h>
#include <ClientComm/TQHPUpgradeByHelper.h>
#include <ClientComm/TQHPUploadByHelper.h>
#include <ClientComm/async.h>
#include <ClientComm/diagnostics.h>
#include <ClientComm/event_loop.h>
#include <ClientComm/platform/bundle.h>
#include <ClientComm/platform/diagnostic.h>
#include <ClientComm/platform/diagnostic_causes.h>
#include <ClientComm/platform/error.h>
#include <ClientComm/platform/export.h>
#include <ClientComm/platform/file_manager.h>
#include <ClientComm/platform/kinfo_proc.h>
#include <ClientComm/platform/property_list.h>
#include <ClientComm/platform/runtime.h>
#include <ClientComm/platform/text.h>
#include <ClientComm/platform/types.h>
#include <ClientComm/platform/user_defaults.h>

#include <chrono>
#include <cstdlib>
#include <utility>

namespace {

const clientcomm::OptionalString text = "text";

// The selectors of a class stand for its methods; a host's own class is made like this.
class Receiver : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const clientcomm::Class cls(
        "Receiver", clientcomm::makeShared<Receiver>,
        {clientcomm::method<&Receiver::answer>("answer:"),
         clientcomm::method<&Receiver::setBundleID>("setBundleID:")});
    return cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }
  clientcomm::OptionalString answer(const clientcomm::OptionalString& question) { return question; }

  static std::size_t callers() { return bundleIDSet().size(); }
};

class Plain : public clientcomm::Object {
 public:
  const clientcomm::Class& isa() const override { return Receiver::staticClass(); }
};

class ControlDelegate : public TQHPHelperControlCallBackDelegate {
 public:
  void willHelperExit() override {}
  void didCheckServerOpen(bool /*isOpen*/, const clientcomm::Error* /*error*/) override {}
};

class UpgradeDelegate : public TQHPProductUpgradeCallBackDelegate {};

void useRuntime() {
  clientcomm::registerClass(Receiver::staticClass());
  const clientcomm::Class* const cls = clientcomm::classNamed("Receiver");
  if (cls == nullptr || cls->name().empty()) throw clientcomm::InvalidArgumentException("no class");
  const std::shared_ptr<clientcomm::Object> made = cls->makeInstance();
  cls->methodForSelector("answer:")->invoke(*made, {&text, 1});
  Plain plain;
  plain.clientcomm::Object::takesCalls();
  Receiver receiver;
  receiver.takesCalls();
  receiver.className();
  receiver.performSelector("answer:", {&text, 1});
  receiver.TQHPAppEventBase::setBundleID(text);
  Receiver::callers();
  TQHPAppleEventProcesser::share();
  TQHPAppleEventProcesser second;
  second.regist();
  second.unRegist();
  second.setObjectforKeyToMapTable(receiver, "Receiver");
  second.removeObjectforKeyToMapTable("Receiver");
  second.objectForKey("Receiver");
  if (processer == &second) std::abort();
}

void useSender() {
  TQHPAppleEventSender& sender = TQHPAppleEventSender::share();
  clientcomm::OptionalString result;
  OSErr status = sender.sendEvnet("Class", "selector:", {});
  status = sender.sendEvnet("Class", "selector:", {}, &result);
  status = sender.sendEvnet(text, "Class", "selector:", {});
  status = sender.sendEvnet(text, "Class", "selector:", {}, &result);
  if (status == clientcomm::procNotFound || result == kHelperBundleId) std::abort();
}

void useProxies() {
  TQHPCustomerServiceByHelepr service;
  service.checkForHeleprMessage(text, text);
  service.customerService(text, text, text, text);
  TQHPCustomerServiceByHelepr::share().isa();
  TQHPGetDataByHelper data;
  data.clientIDFormHelper();
  TQHPGetDataByHelper::share().isa();
  TQHPUploadByHelper upload;
  upload.checkJoinImproveExp();
  upload.uploadLog(text, text, text, text, text, text);
  upload.uploadUserFile(text, text, text, text, text, text);
  upload.uploadProductFile(text, text, text, text, text, text);
  upload.collectData(text, text, 3, text, text, text);
  upload.directUploadData(text, text);
  upload.setProductCollectStatus(text, text, text);
  upload.productCollectStatus(text, text);
  upload.regSuiteInfo(text, text);
  upload.unRegSuiteInfo(text, text);
  upload.netErrorPagePath(text, text);
  TQHPUploadByHelper::share().isa();
}

void useControl() {
  ControlDelegate delegate;
  delegate.TQHPHelperControlCallBackDelegate::respondsToSelector("willHelperExit");
  TQHPHelperControl control;
  control.setHelperCtrlDelegate(&delegate);
  control.helperCtrlDelegate();
  control.isAlive(text, text);
  control.hide(text, text);
  control.show(text, text);
  control.exitHelper(text, text);
  control.stop(text, text);
  control.start(text, text);
  control.helperExitNotify(text);
  control.checkServerOpenCallBack(text, text, text, text);
  control.saveEnableADToPlistFile();
  TQHPHelperControl::share().isa();
  const clientcomm::Error error = TQHPHelperError::errorWithCode("1", text);
  if (error.domain == kHelperErrorCodeDomain) error.userInfo.at(kHelperErrorDescription);
}

void useUpgrade() {
  UpgradeDelegate delegate;
  delegate.TQHPProductUpgradeCallBackDelegate::respondsToSelector("productWillUpgrade:");
  delegate.tell(nullptr);
  TQHPUpgradeByHelper upgrade;
  upgrade.setProductUpgradeDelegate(&delegate);
  upgrade.productUpgradeDelegate();
  upgrade.getProductUpgradeDelegate();
  upgrade.productUpgrade(text, text);
  upgrade.productReadyToUpgrade(text, text, text);
  upgrade.productUpgradeCallBack(text, text, text, text);
  TQHPUpgradeByHelper::share().isa();
}

void useController() {
  TQHPHelperCommunicate& controller = TQHPHelperCommunicate::share();
  controller.isa();
  TQHPHelperCommunicate::staticClass();
  controller.startHelper();
  controller.stopHelper();
  controller.isAliveHelper();
  controller.showHelper();
  controller.hideHelper();
  controller.isHelperSeverNotOpen(controller.autoRestartHelper());
  controller.getDefaultHelperServerOpen();
  controller.synthesizeUserDefault();
  controller.firstStartPID();
  controller.clientIDFormHelper();
  controller.clientID();
  controller.extractHelper();
  controller.launchHelepr();
  TQHPHelperCommunicate::appPath("/");
  TQHPHelperCommunicate::typeOfCharacter("1");
  TQHPHelperCommunicate::splitVersionString(text);
  TQHPHelperCommunicate::compareVersion(text, text);
  controller.productUpgrade();
  controller.productReadyToUpgrade(true);
  controller.setProductUpgradeDelegate(controller.getProductUpgradeDelegate());
  controller.uploadLogByEmail(text, text, text, text);
  controller.uploadUserFile(text, text, text, text);
  controller.uploadProductFile(text, text, text, text);
  controller.checkForHeleprMessage();
  controller.customerserviceByEmail(text, text);
  controller.TQHPHelperCommunicate::willHelperExit();
  controller.TQHPHelperCommunicate::didCheckServerOpen(true, nullptr);
}

void useControllersData() {
  TQHPHelperCommunicate& controller = TQHPHelperCommunicate::share();
  controller.commIncreaseDataCollect(text, text);
  controller.autoCreatedIncreaseDataCollect(text, text);
  controller.customStringDataCollect(text, text);
  controller.directUploadData();
  controller.setProductCollectStatus(controller.productCollectStatus());
  controller.setCollectDataPID(controller.collectDataPID());
  controller.initDataCollectionPath(text);
  controller.regSuiteInfo();
  controller.unRegSuiteInfo();
  controller.netErrorPagePath();
  controller.setTipsEnable(true);
  controller.setEnableAD(true);
  controller.saveTipsEnable();
  controller.saveEnableAD();
  controller.saveTipsEnableToPlistFile(true);
  controller.saveEnableADToPlistFile(true);
  controller.saveTipsEnableTostringsFile(true);
  controller.saveEnableADToStringsFile(true);
  TQHPHelperCommunicate::searchPlistFilePath(text);
  TQHPHelperCommunicate::searchCurrentStringsFilePath(text);
}

void useHelper() {
  TQHPHelper& helper = TQHPHelper::share();
  helper.startHelper();
  helper.stopHelper();
  helper.autoautoStartIntervaTimerMethod(nullptr);
  helper.commIncreaseDataCollect(text, text);
  helper.autoCreatedIncreaseDataCollect(text, text);
  helper.customStringDataCollect(text, text);
  helper.setProductCollectStatus(helper.productCollectStatus());
  helper.directUploadData();
  helper.setDataCollectPID(text);
  helper.regSuiteInfo();
  helper.unRegSuiteInfo();
  helper.netErrorPagePath();
  helper.setTipsEnable(true);
  helper.uploadProductFile(text, text, text, text);
  const TQHPSuiteInfo page = TQHPSuiteInfo::initWithDate(text, 1, 2);
  if (page.URL() && page.width() < page.height()) page.description();
}

void useDiagnostics() {
  clientcomm::setDiagnosticHandler([](const clientcomm::Diagnostic& diagnostic) {
    std::exit(static_cast<int>(clientcomm::descriptionOf(diagnostic).size()));
  });
}

void useAsync() {
  const clientcomm::TimeLimit limit = std::chrono::seconds(1);
  const clientcomm::StartUpCallback started = [](OSErr status) { std::exit(status); };
  const auto note = [](OSErr status, const auto& value) { std::exit(value ? status : 1); };
  TQHPHelper& helper = TQHPHelper::shareAsync(started);
  TQHPHelperCommunicate& controller = TQHPHelperCommunicate::shareAsync(started);
  TQHPAppleEventSender& sender = TQHPAppleEventSender::share();
  TQHPUploadByHelper& upload = TQHPUploadByHelper::share();
  clientcomm::PendingQuery query;
  query = helper.productCollectStatusAsync(note, limit);
  query = helper.regSuiteInfoAsync(note, limit);
  query = helper.unRegSuiteInfoAsync(note, limit);
  query = helper.netErrorPagePathAsync(note, limit);
  query = controller.clientIDFormHelperAsync(note, limit);
  query = controller.productCollectStatusAsync(note, limit);
  query = controller.regSuiteInfoAsync(note, limit);
  query = controller.unRegSuiteInfoAsync(note, limit);
  query = controller.netErrorPagePathAsync(note, limit);
  query = TQHPGetDataByHelper::share().clientIDFormHelperAsync(note, limit);
  query = upload.productCollectStatusAsync(text, text, note, limit);
  query = upload.regSuiteInfoAsync(text, text, note, limit);
  query = upload.unRegSuiteInfoAsync(text, text, note, limit);
  query = upload.netErrorPagePathAsync(text, text, note, limit);
  query = sender.sendEvnetAsync("Class", "selector:", {}, note, limit);
  query = sender.sendEvnetAsync(text, "Class", "selector:", {}, note, limit);
  clientcomm::PendingQuery other = std::move(query);
  if (other.isPending()) other.cancel();
  other.detach();
}

void useProcesses() {
  clientcomm::kinfo_proc* table = nullptr;
  std::size_t count = 0;
  GetBSDProcessList(&table, &count);
  std::free(table);
  TQHPProcessList& processes = TQHPProcessList::share();
  processes.applicationIsRunning(text, text);
  processes.infoForPID(1);
  processes.getBSDProcessList();
}

void useBundle() {
  clientcomm::Bundle bundle("/");
  bundle = clientcomm::Bundle(std::move(bundle));
  clientcomm::Bundle::mainBundle().bundlePath();
  bundle.infoDictionary();
  bundle.infoValue(clientcomm::kCFBundleNameKey);
  bundle.infoString(clientcomm::kCFBundleNameKey);
  bundle.objectForInfoDictionaryKey(clientcomm::kCFBundleNameKey);
  bundle.bundleIdentifier();
  bundle.executablePath();
  bundle.resourcePath();
  bundle.pathForResource("name", "type");
  bundle.pathsForResourcesOfType("type", "");
  bundle.preferredLocalizations();
}

void useEventLoop() {
  clientcomm::EventLoopStatus status{};
  if (clientcomm::openEventLoop(&status) >= 0) status = clientcomm::runEventLoop();
  if (status == clientcomm::EventLoopStatus::kDone) std::abort();
}

void useFilesAndValues() {
  clientcomm::fileExistsAtPath("/");
  clientcomm::createDirectoryAtPath("/");
  clientcomm::PropertyListDictionary values{{"key", true}};
  clientcomm::writeDictionaryToFile(values, "/");
  clientcomm::dictionaryWithContentsOfFile("/");
  const auto read = clientcomm::propertyListFromBytes(clientcomm::xmlPropertyList(values));
  if (read && read->boolValue()) read->stringValue();
  clientcomm::intValue("1");
  clientcomm::boolValue("1");
  clientcomm::UserDefaults defaults("com.example.uses");
  defaults.objectForKey("key");
  defaults.stringForKey("key");
  defaults.setObject(true, "key");
  defaults.synchronize();
  defaults.persistentDomainForName("com.example.uses");
  clientcomm::UserDefaults::standardUserDefaults();
}

}  // namespace

int main(int argc, char** /*argv*/) {
  if (argc == 1) return 0;
  useRuntime();
  useSender();
  useProxies();
  useControl();
  useUpgrade();
  useController();
  useControllersData();
  useHelper();
  useAsync();
  useProcesses();
  useBundle();
  useEventLoop();
  useDiagnostics();
  useFilesAndValues();
}
