#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/timer.h"
#include "tests/support/helper_files.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kStart[] = "start:prodeuctVersion:";
constexpr char kStop[] = "stop:prodeuctVersion:";
constexpr char kIsAlive[] = "isAlive:prodeuctVersion:";
constexpr char kClientID[] = "clientIDFormHelper";

class FacadeTest : public testing::Test {
 protected:
  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelper& facade_ = TQHPHelper::share();
};

// --- Starting and stopping ---

TEST_F(FacadeTest, ThereIsOne) { EXPECT_EQ(&TQHPHelper::share(), &facade_); }

TEST_F(FacadeTest, ItsCreationMakesTheController) {
  EXPECT_EQ(support::hostDefaults().at("PID"), clientcomm::PropertyListValue("P100"));
  EXPECT_TRUE(recorder_.isReceiving());
}

TEST_F(FacadeTest, StartRunsTheRestartStep) {
  facade_.startHelper();
  EXPECT_EQ(recorder_.selectors(), (Strings{kIsAlive, kStart, kClientID}));
  recorder_.forget();
  facade_.startHelper();
  EXPECT_EQ(recorder_.selectors(), Strings{kIsAlive});
}

TEST_F(FacadeTest, StartSaysNothingEvenWhereTheHelperCannotBeLaunched) {
  static_assert(std::is_void_v<decltype(facade_.startHelper())>);
  recorder_.setStatus(-600);
  facade_.startHelper();
  EXPECT_EQ(recorder_.selectors(), Strings{kIsAlive});
}

TEST_F(FacadeTest, StartSendsNothingToAClosedServer) {
  support::writeHelperPreferences({{"TQHPServerClosed", true}});
  facade_.startHelper();
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(FacadeTest, StopSendsTheStopCommand) {
  static_assert(std::is_void_v<decltype(facade_.stopHelper())>);
  facade_.stopHelper();
  EXPECT_EQ(recorder_.selectors(), Strings{kStop});
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3"}));
}

// --- The timer ---

TEST_F(FacadeTest, AForeignTimerDoesNothing) {
  const clientcomm::Timer foreign;
  facade_.autoautoStartIntervaTimerMethod(&foreign);
  facade_.autoautoStartIntervaTimerMethod(nullptr);
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(FacadeTest, ATickStartsAgainAHelperThatTheHostStopped) {
  facade_.startHelper();
  facade_.stopHelper();
  recorder_.forget();
  support::MemoryClock& clock = support::MemorySystem::current().clock;
  clock.advance(std::chrono::milliseconds(4'999));
  EXPECT_TRUE(recorder_.calls().empty()) << "not before its time";
  clock.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(recorder_.selectors(), (Strings{kIsAlive, kStart, kClientID}));
}

// --- The services ---

/// A service of the facade, with the remote call that it ends in.
struct Forwarder {
  const char* name;
  std::function<void(TQHPHelper&)> call;
  const char* selector;
  Strings arguments;
};

std::ostream& operator<<(std::ostream& stream, const Forwarder& forwarder) {
  return stream << forwarder.name;
}

const Forwarder kForwarders[] = {
    {"commIncreaseDataCollect",
     [](TQHPHelper& facade) { facade.commIncreaseDataCollect("target", "key"); },
     "collectData:version:collectionType:target:keyID:value:",
     {"P100", "1.2.3", "3", "target", "key", ""}},
    {"autoCreatedIncreaseDataCollect",
     [](TQHPHelper& facade) { facade.autoCreatedIncreaseDataCollect("target", "key"); },
     "collectData:version:collectionType:target:keyID:value:",
     {"P100", "1.2.3", "4", "target", "key", ""}},
    {"customStringDataCollect",
     [](TQHPHelper& facade) { facade.customStringDataCollect("target", "value"); },
     "collectData:version:collectionType:target:keyID:value:",
     {"P100", "1.2.3", "5", "target", "", "value"}},
    {"setProductCollectStatusOn",
     [](TQHPHelper& facade) { facade.setProductCollectStatus(true); },
     "setProductCollectStatus:version:status:",
     {"P100", "1.2.3", "1"}},
    {"setProductCollectStatusOff",
     [](TQHPHelper& facade) { facade.setProductCollectStatus(false); },
     "setProductCollectStatus:version:status:",
     {"P100", "1.2.3", "0"}},
    {"productCollectStatus",
     [](TQHPHelper& facade) { facade.productCollectStatus(); },
     "productCollectStatus:version:",
     {"P100", "1.2.3"}},
    {"directUploadData",
     [](TQHPHelper& facade) { facade.directUploadData(); },
     "directUploadData:version:",
     {"P100", "1.2.3"}},
    {"regSuiteInfo",
     [](TQHPHelper& facade) { facade.regSuiteInfo(); },
     "regSuiteInfo:version:",
     {"P100", "1.2.3"}},
    {"unRegSuiteInfo",
     [](TQHPHelper& facade) { facade.unRegSuiteInfo(); },
     "unRegSuiteInfo:version:",
     {"P100", "1.2.3"}},
    {"netErrorPagePath",
     [](TQHPHelper& facade) { facade.netErrorPagePath(); },
     "netErrorPagePath:version:",
     {"P100", "1.2.3"}},
    {"uploadProductFile",
     [](TQHPHelper& facade) { facade.uploadProductFile("e@x.y", "/a/file", "title", "text"); },
     "uploadProductFile:versionID:email:filePath:title:description:",
     {"P100", "1.2.3", "e@x.y", "/a/file", "title", "text"}},
};

class ForwarderTest : public FacadeTest, public testing::WithParamInterface<Forwarder> {};

TEST_P(ForwarderTest, PassesItsArgumentsOnInTheirOrder) {
  GetParam().call(facade_);
  ASSERT_EQ(recorder_.selectors(), Strings{GetParam().selector});
  EXPECT_EQ(recorder_.last().arguments, GetParam().arguments);
}

TEST_P(ForwarderTest, ReportsNoErrorWhereTheHelperIsGone) {
  recorder_.setStatus(-600);
  GetParam().call(facade_);
  EXPECT_EQ(recorder_.calls().size(), 1U);
}

std::string nameOfForwarder(const testing::TestParamInfo<Forwarder>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, ForwarderTest, testing::ValuesIn(kForwarders), nameOfForwarder);

TEST_F(FacadeTest, ThePlainServicesReturnNothing) {
  static_assert(std::is_void_v<decltype(facade_.commIncreaseDataCollect("", ""))>);
  static_assert(std::is_void_v<decltype(facade_.autoCreatedIncreaseDataCollect("", ""))>);
  static_assert(std::is_void_v<decltype(facade_.customStringDataCollect("", ""))>);
  static_assert(std::is_void_v<decltype(facade_.setProductCollectStatus(true))>);
  static_assert(std::is_void_v<decltype(facade_.directUploadData())>);
  static_assert(std::is_void_v<decltype(facade_.setDataCollectPID(""))>);
  static_assert(std::is_void_v<decltype(facade_.setTipsEnable(true))>);
}

TEST_F(FacadeTest, AProductFilesStatusComesBackUnchanged) {
  for (const OSErr status : {OSErr{0}, OSErr{-600}, OSErr{-1712}, OSErr{10}}) {
    recorder_.setStatus(status);
    EXPECT_EQ(facade_.uploadProductFile("e", "f", "t", "d"), status);
  }
}

TEST_F(FacadeTest, AnswersComeBackAsTheControllerReadsThem) {
  recorder_.setReply("productCollectStatus:version:", "1");
  recorder_.setReply("regSuiteInfo:version:", "a###1###2");
  recorder_.setReply("unRegSuiteInfo:version:", "b###3###4");
  recorder_.setReply("netErrorPagePath:version:", "/page");
  EXPECT_TRUE(facade_.productCollectStatus());
  EXPECT_EQ(facade_.regSuiteInfo().description(), "url = a width = 1 height = 2");
  EXPECT_EQ(facade_.unRegSuiteInfo().description(), "url = b width = 3 height = 4");
  EXPECT_EQ(facade_.netErrorPagePath(), "/page");
}

TEST_F(FacadeTest, TheTipsSwitchIsWrittenIntoTheHostsPropertyList) {
  const auto tips = [] {
    const auto info = clientcomm::dictionaryWithContentsOfFile(support::hostBundlePath() +
                                                               "/Contents/Info.plist");
    return info->at("TipsEnable");
  };
  facade_.setTipsEnable(false);
  EXPECT_EQ(tips(), clientcomm::PropertyListValue(false));
  facade_.setTipsEnable(true);
  EXPECT_EQ(tips(), clientcomm::PropertyListValue(true));
}

TEST_F(FacadeTest, ANilOrEmptyDataCollectionIDIsIgnored) {
  facade_.setDataCollectPID("D7");
  facade_.setDataCollectPID(std::nullopt);
  facade_.setDataCollectPID("");
  EXPECT_EQ(support::hostDefaults().at("DataCollectPID"), clientcomm::PropertyListValue("D7"));
}

TEST_F(FacadeTest, ADataCollectionIDOfBlanksIsPassedOn) {
  facade_.setDataCollectPID("D7");
  facade_.setDataCollectPID("  ");
  EXPECT_EQ(support::hostDefaults().at("DataCollectPID"), clientcomm::PropertyListValue("  "));
}

}  // namespace
