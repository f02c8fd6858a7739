#include "ClientComm/platform/linux/launch_record.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>

#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::forgetLaunch;
using clientcomm::lastLaunchOf;
using clientcomm::LaunchAdvice;
using clientcomm::launchAdvice;
using clientcomm::LaunchRecord;
using clientcomm::noteLaunch;
using clientcomm::ScopedFd;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr char kPath[] = "/opt/Some.app";
constexpr pid_t kNoProcess = 99'999'999;

/// A launch `age` ago of a process that has ended; `failures` launches before it had failed.
LaunchRecord endedLaunch(milliseconds age, int failures = 0) {
  return {kPath, "state", kNoProcess, 1, clientcomm::timeSinceBoot() - age, failures};
}

/// A launch `age` ago of a process that lives: this one.
LaunchRecord liveLaunch(milliseconds age) {
  LaunchRecord record = endedLaunch(age);
  record.pid = getpid();
  record.startTime = clientcomm::processStartTime(getpid()).value();
  return record;
}

TEST(LaunchAdvice, FirstLaunchIsMade) {
  EXPECT_EQ(launchAdvice(std::nullopt, "state"), LaunchAdvice::kLaunch);
}

TEST(LaunchAdvice, ProcessThatLivesIsStartingUntilTheLaunchLimitAndHungAfterIt) {
  EXPECT_EQ(launchAdvice(liveLaunch(seconds(0)), "state"), LaunchAdvice::kIsStarting);
  EXPECT_EQ(launchAdvice(liveLaunch(seconds(6)), "state"), LaunchAdvice::kIsHung);
  EXPECT_EQ(launchAdvice(liveLaunch(std::chrono::hours(100)), "state"), LaunchAdvice::kIsHung);
}

TEST(LaunchAdvice, BundleThatHasChangedIsLaunchedAtOnce) {
  EXPECT_EQ(launchAdvice(liveLaunch(seconds(6)), "other"), LaunchAdvice::kLaunch);
  EXPECT_EQ(launchAdvice(endedLaunch(seconds(0), 20), "other"), LaunchAdvice::kLaunch);
}

TEST(LaunchAdvice, LaterProcessOfTheSameIDIsNotTakenForTheLaunchedOne) {
  LaunchRecord record = liveLaunch(seconds(0));
  --record.startTime;
  EXPECT_EQ(launchAdvice(record, "state"), LaunchAdvice::kLaunch);
}

TEST(LaunchAdvice, FirstFailuresAreFollowedByALaunchAtOnceAndLaterOnesAfterEverLongerPauses) {
  for (const int failures : {0, 1}) {
    EXPECT_EQ(launchAdvice(endedLaunch(seconds(0), failures), "state"), LaunchAdvice::kLaunch);
  }
  const std::pair<int, seconds> pauses[] = {
      {2, seconds(10)},  {3, seconds(20)},  {4, seconds(40)},    {5, seconds(80)},
      {6, seconds(160)}, {7, seconds(300)}, {1000, seconds(300)}};
  for (const auto& [failures, pause] : pauses) {
    EXPECT_EQ(launchAdvice(endedLaunch(pause - seconds(2), failures), "state"),
              LaunchAdvice::kBackOff)
        << failures;
    EXPECT_EQ(launchAdvice(endedLaunch(pause + seconds(1), failures), "state"),
              LaunchAdvice::kLaunch)
        << failures;
  }
}

TEST(LaunchAdvice, TimeOfAnEarlierBootDoesNotPutALaunchOff) {
  EXPECT_EQ(launchAdvice(endedLaunch(-seconds(100'000), 20), "state"), LaunchAdvice::kLaunch);
}

TEST(LaunchAdvice, ProcessOfAnotherPIDNamespaceIsStartingUntilTheLaunchLimitAndEndedAfterIt) {
  LaunchRecord record = endedLaunch(seconds(0));
  record.pidNamespace = clientcomm::ownPIDNamespace() + 1;
  EXPECT_EQ(launchAdvice(record, "state"), LaunchAdvice::kIsStarting);
  record = liveLaunch(seconds(6));
  record.pidNamespace = clientcomm::ownPIDNamespace() + 1;
  EXPECT_EQ(launchAdvice(record, "state"), LaunchAdvice::kLaunch);
}

class LaunchRecords : public testing::Test {
 protected:
  std::string file() const {
    return clientcomm::runtimeFolderPath() + "/" + clientcomm::launchRecordName(kPath);
  }
  const ScopedFd folder_ = clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
};

TEST_F(LaunchRecords, AreReadBackByOtherProcesses) {
  noteLaunch(folder_.get(), "com.example.some", endedLaunch(seconds(3), 4)).ignore();
  clientcomm::noteReached("com.example.none");
  const auto record = lastLaunchOf(folder_.get(), kPath);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundlePath, kPath);
  EXPECT_EQ(record->bundleState, "state");
  EXPECT_EQ(record->pid, kNoProcess);
  EXPECT_EQ(record->startTime, 1U);
  EXPECT_EQ(record->failures, 4);
  EXPECT_FALSE(lastLaunchOf(folder_.get(), "/opt/Other.app"));
}

TEST_F(LaunchRecords, GoWhenTheLaunchedProcessOpensAndStayWhenAnotherDoes) {
  noteLaunch(folder_.get(), "com.example.some", liveLaunch(seconds(1))).ignore();
  forgetLaunch(folder_.get(), kPath, getppid()).ignore();
  EXPECT_TRUE(std::filesystem::exists(file()));
  forgetLaunch(folder_.get(), kPath, getpid()).ignore();
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_FALSE(lastLaunchOf(folder_.get(), kPath));
}

TEST_F(LaunchRecords, GoWhenTheLauncherReachesTheApplication) {
  noteLaunch(folder_.get(), "com.example.some", liveLaunch(seconds(1))).ignore();
  clientcomm::noteReached("com.example.some");
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_FALSE(lastLaunchOf(folder_.get(), kPath));
}

TEST_F(LaunchRecords, AreRememberedByTheLauncherWhereTheyCannotBeWritten) {
  const ScopedFd nowhere;
  noteLaunch(nowhere.get(), "com.example.some", liveLaunch(seconds(1))).ignore();
  EXPECT_TRUE(lastLaunchOf(nowhere.get(), kPath));
  EXPECT_TRUE(lastLaunchOf(folder_.get(), kPath));
}

TEST_F(LaunchRecords, OfRubbishAreNone) {
  for (const char* text : {"", "rubbish", "<plist version=\"1.0\"><array/></plist>"}) {
    support::writeFile(file(), text);
    EXPECT_FALSE(lastLaunchOf(folder_.get(), kPath)) << text;
  }
}

}  // namespace
