#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/shared_object.h"
#include "tests/support/helper_files.h"
#include "tests/support/memory/memory_applications.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kStart[] = "start:prodeuctVersion:";
constexpr char kStop[] = "stop:prodeuctVersion:";
constexpr char kIsAlive[] = "isAlive:prodeuctVersion:";
constexpr char kShow[] = "show:prodeuctVersion:";
constexpr char kHide[] = "hide:prodeuctVersion:";
constexpr char kClientID[] = "clientIDFormHelper";

const Strings kIdentity = {"P100", "1.2.3"};

PropertyListDictionary hostInfo() {
  return clientcomm::dictionaryWithContentsOfFile(support::hostBundlePath() +
                                                  "/Contents/Info.plist")
      .value_or(PropertyListDictionary());
}

void writeHostInfoWithout(const std::string& key) {
  PropertyListDictionary info = support::defaultHostInfo();
  info.erase(key);
  support::writeHostInfo(info);
}

/// The host has no helper in its bundle, so that its start-up launches none and sends nothing,
/// unless a test puts one there.
class HelperCommunicateTest : public testing::Test {
 protected:
  TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

  /// A controller that has started its helper.
  TQHPHelperCommunicate& startedController() {
    controller().startHelper();
    recorder_.forget();
    return controller();
  }

  /// What `action` sent.
  template <typename Action>
  Strings sentBy(Action action) {
    recorder_.forget();
    action();
    return recorder_.selectors();
  }

  bool isStarted() {
    return sentBy([this] { controller().isAliveHelper(); }) == Strings{kIsAlive};
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
};

void closeServer() { support::writeHelperPreferences({{"TQHPServerClosed", true}}); }

// --- Creation ---

TEST_F(HelperCommunicateTest, ItsCreationRecordsTheProductInTheUserDefaults) {
  controller();
  EXPECT_EQ(
      support::hostDefaults(),
      (PropertyListDictionary{
          {"PID", "P100"}, {"Version", "1.2.3"}, {"ExecutableFile", support::hostBundlePath()}}));
}

TEST_F(HelperCommunicateTest, TheExecutableFileIsTheBundlesFolder) {
  controller();
  const auto path = support::hostDefaults().at("ExecutableFile").stringValue();
  EXPECT_TRUE(path->ends_with("/TestHost.app")) << *path;
}

TEST_F(HelperCommunicateTest, OtherValuesInTheUserDefaultsAreKept) {
  support::writeFile(support::preferencesPath("com.example.testhost"),
                     clientcomm::xmlPropertyList({{"Mine", 7}, {"Version", "0.9"}}));
  controller();
  EXPECT_EQ(support::hostDefaults().at("Mine"), PropertyListValue(7));
  EXPECT_EQ(support::hostDefaults().at("Version"), PropertyListValue("1.2.3"));
}

TEST_F(HelperCommunicateTest, WithoutAHelperItsCreationSendsNothing) {
  controller();
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(HelperCommunicateTest, ItsCreationStartsAHelperThatRuns) {
  const support::MemoryApplication helper(support::makeHelper(support::kInstallFolder));
  controller();
  EXPECT_EQ(recorder_.selectors(), (Strings{kStart, kClientID}));
  EXPECT_EQ(recorder_.calls()[0].arguments, kIdentity);
  EXPECT_TRUE(isStarted());
}

TEST_F(HelperCommunicateTest, ItsCreationTakesNoticesFromThenOn) {
  controller();
  EXPECT_TRUE(recorder_.isReceiving());
  EXPECT_EQ(TQHPHelperControl::share().helperCtrlDelegate(), &controller());
}

TEST_F(HelperCommunicateTest, NothingInTheStartUpMakesASecondController) {
  const support::MemoryApplication helper(support::makeHelper(support::kInstallFolder));
  const TQHPHelperCommunicate* inside = nullptr;
  recorder_.whenSending([&](const auto&) { inside = &TQHPHelperCommunicate::share(); });
  const TQHPHelperCommunicate* const outside = &controller();
  EXPECT_EQ(inside, outside);
  EXPECT_EQ(recorder_.countOf(kStart), 1) << "the start-up ran once";
}

TEST_F(HelperCommunicateTest, NothingInTheStartUpMakesASecondFacade) {
  const support::MemoryApplication helper(support::makeHelper(support::kInstallFolder));
  const TQHPHelper* inside = nullptr;
  recorder_.whenSending([&](const auto&) { inside = &TQHPHelper::share(); });
  const TQHPHelper* const outside = &TQHPHelper::share();
  EXPECT_EQ(inside, outside);
  EXPECT_EQ(recorder_.countOf(kStart), 1);
}

// --- The product's identity ---

TEST_F(HelperCommunicateTest, AMissingProductIDIsSentAsAnEmptyString) {
  writeHostInfoWithout("PID");
  controller().stopHelper();
  EXPECT_EQ(recorder_.last().arguments, (Strings{"", "1.2.3"}));
  EXPECT_FALSE(support::hostDefaults().contains("PID"));
}

TEST_F(HelperCommunicateTest, AMissingVersionIsSentAsAnEmptyString) {
  writeHostInfoWithout("CFBundleVersion");
  controller().stopHelper();
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", ""}));
  EXPECT_FALSE(support::hostDefaults().contains("Version"));
}

TEST_F(HelperCommunicateTest, AnIdentityThatIsNoTextCountsAsMissing) {
  PropertyListDictionary info = support::defaultHostInfo();
  info.insert_or_assign("PID", 100);
  info.insert_or_assign("CFBundleVersion", PropertyListValue::Array{"1"});
  support::writeHostInfo(info);
  controller().stopHelper();
  EXPECT_EQ(recorder_.last().arguments, (Strings{"", ""}));
}

TEST_F(HelperCommunicateTest, AHostWithoutAnInfoDictionaryIsServedAllTheSame) {
  support::writeFile(support::hostBundlePath() + "/Contents/Info.plist",
                     "this is no property list");
  EXPECT_EQ(controller().autoRestartHelper(), 0) << "the recorder takes everything";
  EXPECT_EQ(recorder_.last().target, "");
  EXPECT_FALSE(controller().launchHelepr());
  EXPECT_EQ(controller().firstStartPID(), std::nullopt);
}

// --- Commands ---

TEST_F(HelperCommunicateTest, StartSendsTheCommandAndThenAsksForTheClientID) {
  controller().startHelper();
  EXPECT_EQ(recorder_.selectors(), (Strings{kStart, kClientID}));
  EXPECT_EQ(recorder_.calls()[0].className, "TQHPHelperControl");
  EXPECT_EQ(recorder_.calls()[0].arguments, kIdentity);
  EXPECT_EQ(recorder_.calls()[1].className, "TQHPGetDataByHelper");
  EXPECT_EQ(recorder_.calls()[1].arguments, Strings{});
}

TEST_F(HelperCommunicateTest, TheChoresOfAStartRunInTheirOrder) {
  controller();
  recorder_.whenSending([](const support::RecordedCall& call) {
    const bool isRecorded = support::hostDefaults().contains("FirstStartPID");
    EXPECT_EQ(isRecorded, call.selector == kClientID) << "between the command and the query";
    EXPECT_FALSE(hostInfo().contains("TipsEnable")) << "the settings files come last";
    EXPECT_FALSE(hostInfo().contains("EnableAD"));
  });
  controller().startHelper();
  EXPECT_EQ(recorder_.calls().size(), 2U);
  EXPECT_EQ(hostInfo().at("TipsEnable"), PropertyListValue(true));
  EXPECT_EQ(hostInfo().at("EnableAD"), PropertyListValue(false));
}

TEST_F(HelperCommunicateTest, AFailedStartStillRunsItsChores) {
  controller();
  recorder_.setStatus(-600);
  EXPECT_EQ(controller().startHelper(), -600);
  EXPECT_EQ(recorder_.selectors(), (Strings{kStart, kClientID}));
  EXPECT_TRUE(support::hostDefaults().contains("FirstStartPID"));
  EXPECT_TRUE(hostInfo().contains("TipsEnable"));
  EXPECT_TRUE(hostInfo().contains("EnableAD"));
}

TEST_F(HelperCommunicateTest, AFailedClientIDQueryDoesNotChangeTheStartsStatus) {
  recorder_.setStatus(kClientID, -609);
  EXPECT_EQ(controller().startHelper(), 0);
  EXPECT_TRUE(isStarted());
}

TEST_F(HelperCommunicateTest, StopSendsOneCommand) {
  EXPECT_EQ(sentBy([this] { controller().stopHelper(); }), Strings{kStop});
  EXPECT_EQ(recorder_.last().arguments, kIdentity);
}

TEST_F(HelperCommunicateTest, IsAliveForAStartedHelperSendsExactlyOneEvent) {
  startedController();
  EXPECT_EQ(sentBy([this] { controller().isAliveHelper(); }), Strings{kIsAlive});
  EXPECT_EQ(recorder_.last().arguments, kIdentity);
}

TEST_F(HelperCommunicateTest, IsAliveForAHelperNotStartedStartsIt) {
  EXPECT_EQ(sentBy([this] { EXPECT_EQ(controller().isAliveHelper(), 0); }),
            (Strings{kIsAlive, kStart, kClientID}));
}

TEST_F(HelperCommunicateTest, IsAliveReturnsItsOwnStatusNotTheStarts) {
  recorder_.setStatus(kStart, -609);
  EXPECT_EQ(controller().isAliveHelper(), 0);
}

TEST_F(HelperCommunicateTest, IsAliveForAHelperThatIsGoneStartsNothing) {
  recorder_.setStatus(-600);
  EXPECT_EQ(sentBy([this] { EXPECT_EQ(controller().isAliveHelper(), -600); }), Strings{kIsAlive});
}

TEST_F(HelperCommunicateTest, ShowAndHideMakeSureFirstThatTheHelperRuns) {
  startedController();
  EXPECT_EQ(sentBy([this] { controller().showHelper(); }), (Strings{kIsAlive, kShow}));
  EXPECT_EQ(recorder_.last().arguments, kIdentity);
  EXPECT_EQ(sentBy([this] { controller().hideHelper(); }), (Strings{kIsAlive, kHide}));
  EXPECT_EQ(recorder_.last().arguments, kIdentity);
}

TEST_F(HelperCommunicateTest, ShowAndHideReturnTheirOwnStatus) {
  recorder_.setStatus(kShow, -1712);
  recorder_.setStatus(kHide, -609);
  EXPECT_EQ(controller().showHelper(), -1712);
  EXPECT_EQ(controller().hideHelper(), -609);
}

TEST_F(HelperCommunicateTest, ShowAndHideWithoutAHelperSendNoCommand) {
  recorder_.setStatus(-600);
  EXPECT_EQ(sentBy([this] { EXPECT_EQ(controller().showHelper(), 1); }), Strings{kIsAlive});
  EXPECT_EQ(sentBy([this] { EXPECT_EQ(controller().hideHelper(), 1); }), Strings{kIsAlive});
}

TEST_F(HelperCommunicateTest, OnlyTheStatusTenSaysThatTheServerIsClosed) {
  EXPECT_TRUE(controller().isHelperSeverNotOpen(10));
  for (const OSErr status : {OSErr{0}, OSErr{1}, OSErr{-10}, OSErr{-600}, OSErr{11}}) {
    EXPECT_FALSE(controller().isHelperSeverNotOpen(status)) << status;
  }
}

// --- Whether the helper has been started ---

TEST_F(HelperCommunicateTest, AfterItsCreationTheHelperIsNotStarted) { EXPECT_FALSE(isStarted()); }

TEST_F(HelperCommunicateTest, ADeliveredStartMakesItStarted) {
  controller().startHelper();
  EXPECT_TRUE(isStarted());
}

TEST_F(HelperCommunicateTest, AFailedStartLeavesItNotStarted) {
  recorder_.setStatus(kStart, -600);
  controller().startHelper();
  EXPECT_FALSE(isStarted());
}

TEST_F(HelperCommunicateTest, AFailedStartLeavesAStartedHelperStarted) {
  startedController();
  recorder_.setStatus(kStart, -600);
  controller().startHelper();
  EXPECT_TRUE(isStarted());
}

TEST_F(HelperCommunicateTest, AStopMakesItNotStartedWhateverItsStatus) {
  startedController();
  recorder_.setStatus(kStop, -600);
  EXPECT_EQ(controller().stopHelper(), -600);
  EXPECT_FALSE(isStarted());
}

TEST_F(HelperCommunicateTest, AnotherProcessOfTheHelperHasNotBeenStarted) {
  startedController();
  recorder_.setRecipient(2);  // another host has launched it anew
  EXPECT_EQ(sentBy([this] { EXPECT_EQ(controller().isAliveHelper(), 0); }),
            (Strings{kIsAlive, kStart, kClientID}));
  EXPECT_TRUE(isStarted());
}

TEST_F(HelperCommunicateTest, TheHelpersExitNoticeMakesItNotStarted) {
  startedController();
  const support::Answer answer = recorder_.call("TQHPHelperControl", "helperExitNotify:", {"x"});
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_EQ(recorder_.selectors(), Strings{kStop});
  EXPECT_EQ(recorder_.last().arguments, kIdentity);
  EXPECT_FALSE(isStarted());
}

TEST_F(HelperCommunicateTest, TheServerCheckNoticeSendsNothing) {
  startedController();
  recorder_.call("TQHPHelperControl", "checkServerOpenCallBack::::", {"", "0", "7", "closed"});
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_TRUE(isStarted());
}

// --- The restart step ---

struct RestartStep {
  const char* name;
  bool isServerOpen;
  bool isRunning;  // as an application process
  OSErr isAliveStatus;
  bool isStarted;
  OSErr expectedStatus;
  Strings expectedCalls;
};

std::ostream& operator<<(std::ostream& stream, const RestartStep& step) {
  return stream << step.name;
}

const RestartStep kRestartSteps[] = {
    {"ClosedServerOfARunningHelper", false, true, 0, false, 10, {}},
    {"ClosedServerOfAStartedHelper", false, true, 0, true, 10, {}},
    {"ClosedServerOfAHelperThatIsGone", false, false, -600, true, 10, {}},
    {"AliveButNotStarted", true, true, 0, false, 0, {kIsAlive, kStart, kClientID}},
    {"AliveAndStarted", true, true, 0, true, 0, {kIsAlive}},
    {"RunningButNotYetReceiving", true, true, -600, false, 0, {kIsAlive, kStart, kClientID}},
    {"StartedButNotReceiving", true, true, -1712, true, 0, {kIsAlive, kStart, kClientID}},
    {"GoneAndNotInstalled", true, false, -600, false, 1, {kIsAlive}},
    {"StartedOnceThenGone", true, false, -600, true, 1, {kIsAlive}},
};

class RestartStepTest : public HelperCommunicateTest,
                        public testing::WithParamInterface<RestartStep> {};

TEST_P(RestartStepTest, DoesWhatTheStateAsksFor) {
  const RestartStep& step = GetParam();
  controller();
  if (step.isStarted) startedController();
  std::optional<support::MemoryApplication> helper;
  if (step.isRunning) helper.emplace(support::makeHelper(support::kInstallFolder));
  if (!step.isServerOpen) closeServer();
  recorder_.setStatus(kIsAlive, step.isAliveStatus);
  OSErr status = -1;
  EXPECT_EQ(sentBy([&] { status = controller().autoRestartHelper(); }), step.expectedCalls);
  EXPECT_EQ(status, step.expectedStatus);
}

std::string nameOfStep(const testing::TestParamInfo<RestartStep>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(All, RestartStepTest, testing::ValuesIn(kRestartSteps), nameOfStep);

TEST_F(HelperCommunicateTest, TheStepAfterAFailedStartSendsTheStartAgain) {
  const support::MemoryApplication helper(support::makeHelper(support::kInstallFolder));
  recorder_.setStatus(-600);  // launched, but not yet receiving
  controller();
  EXPECT_EQ(recorder_.selectors(), (Strings{kStart, kClientID}));
  recorder_.setStatus(0);
  EXPECT_EQ(sentBy([this] { controller().autoRestartHelper(); }),
            (Strings{kIsAlive, kStart, kClientID}));
  EXPECT_EQ(sentBy([this] { controller().autoRestartHelper(); }), Strings{kIsAlive});
}

// --- The helper's server ---

TEST_F(HelperCommunicateTest, AClosedServerRefusesShowAndHideAndTakesNothing) {
  closeServer();
  EXPECT_EQ(sentBy([this] { EXPECT_EQ(controller().showHelper(), 10); }), Strings{});
  EXPECT_EQ(sentBy([this] { EXPECT_EQ(controller().hideHelper(), 10); }), Strings{});
}

TEST_F(HelperCommunicateTest, StartStopAndIsAliveAreSentToAClosedServer) {
  closeServer();
  EXPECT_EQ(sentBy([this] { controller().startHelper(); }), (Strings{kStart, kClientID}));
  EXPECT_EQ(sentBy([this] { controller().isAliveHelper(); }), Strings{kIsAlive});
  EXPECT_EQ(sentBy([this] { controller().stopHelper(); }), Strings{kStop});
}

TEST_F(HelperCommunicateTest, AHelperWithAClosedServerIsNotLaunchedByTheRestartStep) {
  controller();
  support::makeHelper(support::kInstallFolder);
  closeServer();
  recorder_.setStatus(-600);
  EXPECT_EQ(controller().autoRestartHelper(), 10);
  EXPECT_TRUE(support::MemorySystem::current().processes.launched.empty());
}

TEST_F(HelperCommunicateTest, TheServersStateIsReadAnewForEachStep) {
  controller();
  closeServer();
  EXPECT_EQ(controller().autoRestartHelper(), 10);
  support::writeHelperPreferences({{"TQHPServerClosed", false}});
  EXPECT_EQ(controller().autoRestartHelper(), 0);
  closeServer();
  EXPECT_EQ(controller().autoRestartHelper(), 10);
}

TEST_F(HelperCommunicateTest, TheServerIsClosedByEveryValueThatReadsAsTrue) {
  for (const PropertyListValue& closed :
       {PropertyListValue(true), PropertyListValue(1), PropertyListValue(-2),
        PropertyListValue(0.5), PropertyListValue("YES"), PropertyListValue("1")}) {
    support::writeHelperPreferences({{"TQHPServerClosed", closed}});
    EXPECT_FALSE(controller().getDefaultHelperServerOpen());
  }
}

TEST_F(HelperCommunicateTest, TheServerIsOpenByEveryOtherValue) {
  for (const PropertyListValue& open :
       {PropertyListValue(false), PropertyListValue(0), PropertyListValue(0.0),
        PropertyListValue("NO"), PropertyListValue(""), PropertyListValue("closed"),
        PropertyListValue(PropertyListValue::Array{true})}) {
    support::writeHelperPreferences({{"TQHPServerClosed", open}});
    EXPECT_TRUE(controller().getDefaultHelperServerOpen());
  }
}

TEST_F(HelperCommunicateTest, TheServerIsOpenWithoutAKeyADomainOrAReadableOne) {
  EXPECT_TRUE(controller().getDefaultHelperServerOpen()) << "no preferences at all";
  support::writeHelperPreferences({{"TQHPServerOpen", true}});
  EXPECT_TRUE(controller().getDefaultHelperServerOpen()) << "no such key";
  support::writeFile(support::preferencesPath(support::helperIdentifier()), "<plist><dict>");
  EXPECT_TRUE(controller().getDefaultHelperServerOpen()) << "no property list";
}

TEST_F(HelperCommunicateTest, AHostThatNamesNoHelperTakesItsServerForOpen) {
  writeHostInfoWithout("Helper Bundle indentifiter");
  closeServer();
  EXPECT_TRUE(controller().getDefaultHelperServerOpen());
}

TEST_F(HelperCommunicateTest, AKeyInTheHostsOwnDefaultsDoesNotCloseTheServer) {
  support::writeFile(support::preferencesPath("com.example.testhost"),
                     clientcomm::xmlPropertyList({{"TQHPServerClosed", true}}));
  EXPECT_TRUE(controller().getDefaultHelperServerOpen());
}

// --- The first start ---

TEST_F(HelperCommunicateTest, TheFirstStartIsRecordedOnce) {
  EXPECT_EQ(controller().firstStartPID(), "P100");
  EXPECT_EQ(support::hostDefaults().at("IsFirstStart"), PropertyListValue(false));
  EXPECT_EQ(support::hostDefaults().at("FirstStartPID"), PropertyListValue("P100"));
  EXPECT_EQ(controller().firstStartPID(), "P100");
}

/// A later version of the host, started by the same user.
TEST_F(HelperCommunicateTest, TheFirstStartOutlivesAChangeOfTheProductID) {
  EXPECT_EQ(controller().firstStartPID(), "P100");
  PropertyListDictionary info = support::defaultHostInfo();
  info.insert_or_assign("PID", "P200");
  support::writeHostInfo(info);
  // The host's next process.
  clientcomm::SharedObjects::destroyAll();
  RecordingTransport::install();
  EXPECT_EQ(controller().firstStartPID(), "P100");
  EXPECT_EQ(support::hostDefaults().at("PID"), PropertyListValue("P200"));
}

void writeHostDefaults(const PropertyListDictionary& values) {
  support::writeFile(support::preferencesPath("com.example.testhost"),
                     clientcomm::xmlPropertyList(values));
}

TEST_F(HelperCommunicateTest, AFirstStartMarkedAsStillToComeIsRecordedAgain) {
  writeHostDefaults({{"IsFirstStart", true}, {"FirstStartPID", "P001"}});
  EXPECT_EQ(controller().firstStartPID(), "P100");
  EXPECT_EQ(support::hostDefaults().at("IsFirstStart"), PropertyListValue(false));
  EXPECT_EQ(support::hostDefaults().at("FirstStartPID"), PropertyListValue("P100"));
}

TEST_F(HelperCommunicateTest, ARecordedFirstStartWithoutAProductIDIsNil) {
  writeHostDefaults({{"IsFirstStart", false}});
  EXPECT_EQ(controller().firstStartPID(), std::nullopt);
  EXPECT_FALSE(support::hostDefaults().contains("FirstStartPID"));
}

TEST_F(HelperCommunicateTest, AFirstStartWithoutAProductIDIsRecordedAsSuch) {
  writeHostInfoWithout("PID");
  EXPECT_EQ(controller().firstStartPID(), std::nullopt);
  EXPECT_EQ(support::hostDefaults().at("IsFirstStart"), PropertyListValue(false));
  EXPECT_FALSE(support::hostDefaults().contains("FirstStartPID"));
}

// --- The client ID ---

TEST_F(HelperCommunicateTest, TheClientIDIsKept) {
  recorder_.setReply(kClientID, "C-42");
  EXPECT_EQ(controller().clientID(), std::nullopt);
  EXPECT_EQ(controller().clientIDFormHelper(), "C-42");
  EXPECT_EQ(controller().clientID(), "C-42");
}

TEST_F(HelperCommunicateTest, AnUnansweredQueryLeavesNoClientID) {
  recorder_.setReply(kClientID, "C-42");
  controller().clientIDFormHelper();
  recorder_.setStatus(-600);
  EXPECT_EQ(controller().clientIDFormHelper(), std::nullopt);
  EXPECT_EQ(controller().clientID(), std::nullopt) << "the old value is gone";
}

TEST_F(HelperCommunicateTest, TheOldClientIDIsGoneBeforeTheNewOneIsAskedFor) {
  recorder_.setReply(kClientID, "C-42");
  controller().clientIDFormHelper();
  recorder_.whenSending([this](const auto&) { EXPECT_EQ(controller().clientID(), std::nullopt); });
  EXPECT_EQ(controller().clientIDFormHelper(), "C-42");
}

TEST_F(HelperCommunicateTest, EachStartFetchesTheClientIDAgain) {
  recorder_.setReply(kClientID, "first");
  controller().startHelper();
  EXPECT_EQ(controller().clientID(), "first");
  recorder_.setReply(kClientID, "second");
  controller().startHelper();
  EXPECT_EQ(controller().clientID(), "second");
}

}  // namespace
