#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/support/helper_files.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// What the helper can call in a host, by class and selector.

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;

const std::map<std::string, Strings> kCallable = {
    {"TQHPHelperCommunicate",
     {"startHelper",
      "stopHelper",
      "isAliveHelper",
      "showHelper",
      "hideHelper",
      "autoRestartHelper",
      "getDefaultHelperServerOpen",
      "synthesizeUserDefault",
      "firstStartPID",
      "clientIDFormHelper",
      "clientID",
      "willHelperExit",
      "getProductUpgradeDelegate",
      "typeOfCharacter:",
      "splitVersionString:",
      "compareVersion:toVersion:",
      "extractHelper",
      "launchHelepr",
      "appPath:",
      "productUpgrade",
      "uploadLogByEmail:filePath:title:description:",
      "uploadUserFile:filePath:title:description:",
      "uploadProductFile:filePath:title:description:",
      "checkForHeleprMessage",
      "customerserviceByEmail:attachment:",
      "commIncreaseDataCollect:key:",
      "autoCreatedIncreaseDataCollect:key:",
      "customStringDataCollect:value:",
      "directUploadData",
      "productCollectStatus",
      "setCollectDataPID:",
      "collectDataPID",
      "initDataCollectionPath:",
      "regSuiteInfo",
      "unRegSuiteInfo",
      "netErrorPagePath",
      "saveTipsEnable",
      "saveEnableAD",
      "searchPlistFilePath:",
      "searchCurrentStringsFilePath:"}},
    {"TQHPHelperControl",
     {"isAlive:prodeuctVersion:", "hide:prodeuctVersion:", "show:prodeuctVersion:",
      "exitHelper:productVersion:", "stop:prodeuctVersion:", "start:prodeuctVersion:",
      "helperExitNotify:", "checkServerOpenCallBack::::", "saveEnableADToPlistFile",
      "helperCtrlDelegate"}},
    {"TQHPGetDataByHelper", {"clientIDFormHelper"}},
    {"TQHPUpgradeByHelper",
     {"productUpgrade:versionID:", "productReadyToUpgrade:versionID:ready:",
      "productUpgradeCallBack::::", "productUpgradeDelegate", "getProductUpgradeDelegate"}},
    {"TQHPUploadByHelper",
     {"uploadLog:versionID:email:filePath:title:description:",
      "uploadUserFile:versionID:email:filePath:title:description:",
      "uploadProductFile:versionID:email:filePath:title:description:", "directUploadData:version:",
      "setProductCollectStatus:version:status:", "productCollectStatus:version:",
      "regSuiteInfo:version:", "unRegSuiteInfo:version:", "netErrorPagePath:version:",
      "checkJoinImproveExp"}},
    {"TQHPCustomerServiceByHelepr",
     {"checkForHeleprMessage:versionID:", "customerService:versionID:email:attachment:"}},
};

const std::map<std::string, Strings> kNotCallable = {
    {"TQHPHelperCommunicate",
     {"isHelperSeverNotOpen:", "productReadyToUpgrade:", "setProductUpgradeDelegate:",
      "setProductCollectStatus:", "setTipsEnable:", "setEnableAD:", "saveTipsEnableToPlistFile:",
      "saveEnableADToPlistFile:", "saveTipsEnableTostringsFile:", "saveEnableADToStringsFile:",
      "didCheckServerOpen::", "setBundleID:", "init", "dealloc", "share"}},
    {"TQHPHelperControl", {"setHelperCtrlDelegate:", "setBundleID:"}},
    {"TQHPUpgradeByHelper", {"setProductUpgradeDelegate:"}},
    {"TQHPUploadByHelper", {"collectData:version:collectionType:target:keyID:value:"}},
};

const clientcomm::Method* methodOf(const std::string& className, const std::string& selector) {
  const clientcomm::Class* const cls = clientcomm::classNamed(className);
  return cls == nullptr ? nullptr : cls->methodForSelector(selector);
}

class CallableMethodsTest : public testing::Test {
 protected:
  CallableMethodsTest() { recorder_.forget(); }

  OptionalString call(const std::string& selector, const Strings& arguments = {}) {
    return recorder_.call("TQHPHelperCommunicate", selector, arguments).text;
  }

  void expectSent(const std::string& className, const std::string& selector,
                  const Strings& arguments) {
    EXPECT_EQ(recorder_.last().className, className);
    EXPECT_EQ(recorder_.last().selector, selector);
    EXPECT_EQ(recorder_.last().arguments, arguments);
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
};

TEST_F(CallableMethodsTest, EveryMethodThatTakesStringsAloneIsCallableByItsSelector) {
  for (const auto& [className, selectors] : kCallable) {
    for (const std::string& selector : selectors) {
      const clientcomm::Method* const method = methodOf(className, selector);
      ASSERT_NE(method, nullptr) << className << " " << selector;
      EXPECT_EQ(method->argumentCount, std::ranges::count(selector, ':')) << selector;
    }
  }
}

TEST_F(CallableMethodsTest, MethodsThatTakeAnythingElseAreNot) {
  for (const auto& [className, selectors] : kNotCallable) {
    for (const std::string& selector : selectors) {
      EXPECT_EQ(methodOf(className, selector), nullptr) << className << " " << selector;
    }
  }
}

// None of them may end the process or raise, whatever arguments it lacks.
TEST_F(CallableMethodsTest, EveryMethodOfEveryClassCanBeCalledWithoutArguments) {
  for (const auto& [className, selectors] : kCallable) {
    for (const std::string& selector : selectors) {
      EXPECT_EQ(recorder_.call(className, selector).status, 0) << className << " " << selector;
    }
  }
}

TEST_F(CallableMethodsTest, TheControllersServicesSendWhatTheyDoForTheHost) {
  call("uploadLogByEmail:filePath:title:description:", {"e", "/f", "t", "d"});
  expectSent("TQHPUploadByHelper", "uploadLog:versionID:email:filePath:title:description:",
             {"P100", "1.2.3", "e", "/f", "t", "d"});
  call("uploadProductFile:filePath:title:description:", {"e"});
  expectSent("TQHPUploadByHelper", "uploadProductFile:versionID:email:filePath:title:description:",
             {"P100", "1.2.3", "e", "", "", ""});
  call("customerserviceByEmail:attachment:", {"e", "/a"});
  expectSent("TQHPCustomerServiceByHelepr",
             "customerService:versionID:email:attachment:", {"P100", "1.2.3", "e", "/a"});
  call("commIncreaseDataCollect:key:", {"Launch", "k1"});
  expectSent("TQHPUploadByHelper", "collectData:version:collectionType:target:keyID:value:",
             {"P100", "1.2.3", "3", "Launch", "k1", ""});
  call("productUpgrade");
  expectSent("TQHPUpgradeByHelper", "productUpgrade:versionID:", {"P100", "1.2.3"});
}

TEST_F(CallableMethodsTest, AControllersMethodThatYieldsTextAnswersWithIt) {
  recorder_.setReply("netErrorPagePath:version:", "/pages/offline.html");
  EXPECT_EQ(call("netErrorPagePath"), "/pages/offline.html");
  const std::string folder = support::sandbox() + "/applications";
  clientcomm::createDirectoryAtPath(folder + "/Notes.app");
  EXPECT_EQ(call("appPath:", {folder}), folder + "/Notes.app");
  EXPECT_EQ(call("appPath:"), std::nullopt);
  const std::string bundle = support::sandbox() + "/TestHost.app";
  EXPECT_EQ(call("searchPlistFilePath:", {bundle}), bundle + "/Contents/Info.plist");
}

TEST_F(CallableMethodsTest, AControllersMethodThatYieldsSomethingElseAnswersWithNil) {
  recorder_.setReply("regSuiteInfo:version:", "page.html###640###480");
  EXPECT_EQ(call("regSuiteInfo"), std::nullopt);
  EXPECT_EQ(recorder_.countOf("regSuiteInfo:version:"), 1);
  EXPECT_EQ(call("compareVersion:toVersion:", {"2", "1"}), std::nullopt);
  EXPECT_EQ(call("splitVersionString:", {"1.2"}), std::nullopt);
  EXPECT_EQ(call("typeOfCharacter:", {"."}), std::nullopt);
  EXPECT_EQ(call("getDefaultHelperServerOpen"), std::nullopt);
}

TEST_F(CallableMethodsTest, AControllersSetterTakesTheArgumentOfTheCall) {
  call("setCollectDataPID:", {"P7"});
  EXPECT_EQ(controller_.collectDataPID(), "P7");
  EXPECT_EQ(call("collectDataPID"), "P7");
  call("initDataCollectionPath:", {support::sandbox() + "/collected"});
  EXPECT_TRUE(support::isFolder(support::sandbox() + "/collected/Log/Data"));
}

}  // namespace
