#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/file_manager.h"
#include "tests/support/helper_files.h"
#include "tests/support/memory/memory_applications.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using namespace std::chrono_literals;
using support::RecordingTransport;
using Strings = std::vector<std::string>;
using Statuses = std::vector<OSErr>;

constexpr char kStart[] = "start:prodeuctVersion:";
constexpr char kIsAlive[] = "isAlive:prodeuctVersion:";
constexpr char kShow[] = "show:prodeuctVersion:";
constexpr char kClientID[] = "clientIDFormHelper";

void passTime(std::chrono::milliseconds time) {
  support::MemorySystem::current().clock.advance(time);
}

bool isInstalled() { return clientcomm::fileExistsAtPath(support::installedHelperPath()); }

Strings& launched() { return support::MemorySystem::current().processes.launched; }

/// The start-up that does not block, on a recorder that takes what is sent.
class BackgroundStart : public testing::Test {
 protected:
  TQHPHelper& start() {
    return TQHPHelper::shareAsync([this](OSErr status) { statuses_.push_back(status); });
  }

  static TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

  RecordingTransport& recorder_ = RecordingTransport::install();
  Statuses statuses_;
};

TEST_F(BackgroundStart, InstallsLaunchesAndStartsTheHelperOnTheLoop) {
  support::makeHelper(support::kResourceFolder);
  recorder_.setReply(kClientID, "id");
  TQHPHelper& facade = start();
  EXPECT_FALSE(isInstalled()) << "nothing is installed by the call itself";
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_TRUE(recorder_.isReceiving());
  passTime(1s);
  EXPECT_TRUE(isInstalled());
  EXPECT_EQ(launched(), Strings{support::installedHelperPath()});
  EXPECT_EQ(recorder_.selectors(), (Strings{kIsAlive, kStart, kClientID}));
  EXPECT_EQ(statuses_, Statuses{0});
  EXPECT_EQ(controller().clientID(), "id");
  EXPECT_EQ(&TQHPHelper::share(), &facade);
}

TEST_F(BackgroundStart, RecordsTheProductAtOnce) {
  start();
  EXPECT_EQ(support::hostDefaults().at("PID"), clientcomm::PropertyListValue("P100"));
}

TEST_F(BackgroundStart, WaitsForALaunchedHelperThatIsNotOpenYet) {
  support::makeHelper(support::kResourceFolder);
  recorder_.setStatus(-600);
  start();
  passTime(3s);
  EXPECT_EQ(statuses_, Statuses());
  recorder_.setStatus(0);
  passTime(1s);
  EXPECT_EQ(statuses_, Statuses{0});
  EXPECT_EQ(recorder_.countOf(kStart), 1);
}

TEST_F(BackgroundStart, GivesUpAHelperThatDoesNotOpenAndTheTicksTryAgain) {
  support::makeHelper(support::kResourceFolder);
  recorder_.setStatus(-600);
  start();
  passTime(6s);
  EXPECT_EQ(statuses_, Statuses{1});
  recorder_.setStatus(0);
  passTime(10s);
  EXPECT_EQ(recorder_.countOf(kStart), 1);
  EXPECT_EQ(statuses_, Statuses{1}) << "the call-back is called once";
}

TEST_F(BackgroundStart, WithoutAHelperToInstallItIsOverSoon) {
  start();
  passTime(1s);
  EXPECT_EQ(statuses_, Statuses{1});
  EXPECT_TRUE(launched().empty());
}

TEST_F(BackgroundStart, HelperThatDoesNotAnswerTheQueryHoldsNothingUp) {
  support::makeHelper(support::kResourceFolder);
  recorder_.hold(kClientID);
  TQHPHelper& facade = start();
  passTime(51s);
  EXPECT_EQ(statuses_, Statuses{0});
  EXPECT_GE(recorder_.countOf(kIsAlive), 10) << "ticks go on";
  EXPECT_EQ(controller().showHelper(), 0);
  EXPECT_EQ(controller().clientID(), std::nullopt);
  recorder_.setReply(kClientID, "id");
  recorder_.release(kClientID);
  passTime(1s);
  EXPECT_EQ(controller().clientID(), "id");
  facade.stopHelper();
}

TEST_F(BackgroundStart, NoCommandWaitsForTheHelper) {
  start();
  passTime(1s);
  recorder_.forget();
  controller().stopHelper();
  EXPECT_EQ(recorder_.last().timeOut, 0);
}

TEST_F(BackgroundStart, StartCommandOfTheHostDoesNotBlockEither) {
  start();
  passTime(1s);
  recorder_.hold(kClientID);
  EXPECT_EQ(controller().startHelper(), 0);
  EXPECT_EQ(recorder_.last().selector, kClientID);
}

TEST_F(BackgroundStart, ServiceBeforeTheEndOfTheStartUpSaysThatTheHelperIsNotLaunched) {
  support::makeHelper(support::kResourceFolder);
  recorder_.setStatus(-600);
  start();
  EXPECT_EQ(controller().showHelper(), 1);
  EXPECT_EQ(recorder_.countOf(kShow), 0);
}

TEST_F(BackgroundStart, RestartStepLaunchesAHelperThatHasEndedOnTheLoop) {
  support::makeHelper(support::kResourceFolder);
  start();
  passTime(1s);
  recorder_.setStatus(-600);
  support::MemorySystem::current().processes.end(
      std::prev(support::MemorySystem::current().processes.all().end())->first);
  EXPECT_EQ(controller().autoRestartHelper(), 1);
  EXPECT_EQ(controller().autoRestartHelper(), 1) << "it is under way";
  EXPECT_EQ(launched().size(), 1U) << "not by the call itself";
  passTime(100ms);
  EXPECT_EQ(launched().size(), 2U);
  recorder_.setStatus(0);
  recorder_.setRecipient(2);
  passTime(100ms);
  EXPECT_EQ(recorder_.countOf(kStart), 2);
}

TEST_F(BackgroundStart, RestartStepSendsNothingToAClosedServer) {
  start();
  passTime(1s);
  support::writeHelperPreferences({{"TQHPServerClosed", true}});
  EXPECT_EQ(controller().autoRestartHelper(), 10);
}

TEST_F(BackgroundStart, InstalledCopyThatIsMissingIsInstalledAgainOnTheLoop) {
  support::makeHelper(support::kResourceFolder);
  start();
  passTime(1s);
  support::MemorySystem::current().files.remove(support::installedHelperPath());
  recorder_.setStatus(-600);
  EXPECT_EQ(controller().autoRestartHelper(), 1);
  EXPECT_FALSE(isInstalled());
  passTime(100ms);
  EXPECT_TRUE(isInstalled());
}

TEST_F(BackgroundStart, HostThatIsInstallingIsWaitedForWithoutBlocking) {
  support::makeHelper(support::kResourceFolder);
  std::optional<clientcomm::DirectoryLock> other;
  support::MemorySystem::current().files.makeFolder(support::sandbox() + "/" +
                                                    support::kInstallFolder);
  other.emplace(support::sandbox() + "/" + support::kInstallFolder, 0ms);
  ASSERT_TRUE(other->isHeld());
  start();
  passTime(5s);
  EXPECT_EQ(statuses_, Statuses());
  EXPECT_FALSE(isInstalled());
  other.reset();
  passTime(1s);
  EXPECT_EQ(statuses_, Statuses{0});
  EXPECT_TRUE(isInstalled());
}

TEST_F(BackgroundStart, HostThatHoldsTheFolderForEverIsNotWaitedForForEver) {
  support::makeHelper(support::kResourceFolder);
  support::MemorySystem::current().files.makeFolder(support::sandbox() + "/" +
                                                    support::kInstallFolder);
  const clientcomm::DirectoryLock other(support::sandbox() + "/" + support::kInstallFolder, 0ms);
  start();
  passTime(11s);
  EXPECT_EQ(statuses_, Statuses{1});
}

TEST_F(BackgroundStart, ReplacesAnOlderHelper) {
  support::makeHelper(support::kInstallFolder, "1.0");
  support::makeHelper(support::kResourceFolder, "2.0");
  start();
  passTime(1s);
  EXPECT_EQ(statuses_, Statuses{0});
  EXPECT_EQ(clientcomm::Bundle(support::installedHelperPath()).infoString("CFBundleVersion"),
            "2.0");
}

// --- The call-back ---

TEST_F(BackgroundStart, EachCallBackIsCalledOnceAlsoAfterTheStartUp) {
  start();
  start();
  EXPECT_EQ(statuses_, Statuses());
  passTime(1s);
  EXPECT_EQ(statuses_, (Statuses{1, 1}));
  start();
  EXPECT_EQ(statuses_.size(), 2U) << "not within the call";
  passTime(1s);
  EXPECT_EQ(statuses_, (Statuses{1, 1, 1}));
}

TEST_F(BackgroundStart, CallBackMayThrowAskAgainAndRunTheRestartStep) {
  support::makeHelper(support::kResourceFolder);
  TQHPHelper::shareAsync([this](OSErr) {
    recorder_.setStatus(-600);
    controller().autoRestartHelper();
    start();
    throw std::runtime_error("the host's own");
  });
  passTime(1s);
  EXPECT_EQ(statuses_, Statuses()) << "the start-up that the call-back has begun is under way";
  recorder_.setStatus(0);
  passTime(1s);
  EXPECT_EQ(statuses_, Statuses{0});
}

TEST_F(BackgroundStart, NoCallBackIsNeeded) {
  support::makeHelper(support::kResourceFolder);
  TQHPHelper::shareAsync();
  passTime(1s);
  EXPECT_EQ(recorder_.countOf(kStart), 1);
}

TEST_F(BackgroundStart, AfterAStartUpThatBlockedNothingIsStartedAgainAndNothingBlocks) {
  support::makeHelper(support::kResourceFolder);
  TQHPHelper& facade = TQHPHelper::share();
  ASSERT_EQ(recorder_.countOf(kStart), 1);
  EXPECT_EQ(&start(), &facade);
  passTime(1s);
  EXPECT_EQ(statuses_, Statuses{0});
  EXPECT_EQ(recorder_.countOf(kStart), 1);
  controller().stopHelper();
  EXPECT_EQ(recorder_.last().timeOut, 0);
}

}  // namespace
