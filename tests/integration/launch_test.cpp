#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// What the restart step makes of helpers that do not come up, cannot be reached, or run elsewhere.

namespace {

using support::ChildProcess;
using support::countInJournal;
using support::embedHelper;
using support::helperIdentifier;
using support::installedHelperPath;
using support::makeHost;
using support::processesOf;
namespace fs = std::filesystem;

constexpr char kEndingRole[] = "helper-that-ends-at-once";

/// In which a process that could not open its endpoint tries again twice.
constexpr std::chrono::milliseconds kTwoRetries = std::chrono::seconds(2);

const support::Role endingHelper(kEndingRole, [](const std::vector<std::string>&) {
  std::ofstream(support::sandbox() + "/ended", std::ios::app) << getpid() << std::endl;
  return 0;
});

int launchesThatEnded() {
  std::ifstream list(support::sandbox() + "/ended");
  int count = 0;
  for (std::string line; std::getline(list, line);) ++count;
  return count;
}

OSErr restartStep() { return TQHPHelperCommunicate::share().autoRestartHelper(); }

bool isRestarted(std::size_t times) {
  return support::waitUntil([&] {
    TQHPHelper::share().startHelper();
    return countInJournal("start P100 1.2.3") >= times;
  });
}

bool isRunning(const std::string& path) {
  return TQHPProcessList::share().applicationIsRunning(OptionalString(helperIdentifier()), path);
}

TEST(Launching, HelperThatEndsAtOnceIsNotLaunchedByEveryRestartStep) {
  embedHelper("1.0", "TestHost.app", {{"TestRole", kEndingRole}});
  const auto begin = std::chrono::steady_clock::now();
  TQHPHelper::share();
  EXPECT_TRUE(support::waitUntil([] { return restartStep() == 1; }));
  int launches = 0;
  for (int step = 0; step < 20; ++step) launches += restartStep() == 1 ? 0 : 1;
  // A loaded machine may take as long as a launch is put off, and each time allows one more.
  const auto delays = (std::chrono::steady_clock::now() - begin) / clientcomm::kShortestBackOff;
  EXPECT_LE(launches, delays);
  EXPECT_GE(launchesThatEnded(), clientcomm::kLaunchesAtOnce);
  EXPECT_LE(launchesThatEnded(), clientcomm::kLaunchesAtOnce + delays);
}

TEST(Launching, HelperWhoseInfoPlistIsDamagedIsLaunchedOnceAndAgainWhenItIsRepaired) {
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const std::string plist = installedHelperPath() + "/Contents/Info.plist";
  const std::string whole = support::readFile(plist);
  for (const pid_t pid : processesOf(installedHelperPath())) support::sendSignal(pid, SIGKILL);
  ASSERT_TRUE(support::waitUntil([] { return processesOf(installedHelperPath()).empty(); }));
  // It keeps its version and its role, so that it is not replaced and stays.
  support::writeFile(plist,
                     clientcomm::xmlPropertyList({{"CFBundleExecutable", support::kHelperName},
                                                  {"CFBundleVersion", "1.0"},
                                                  {"TestRole", "product-helper"}}));
  EXPECT_TRUE(support::waitUntil([] { return restartStep() == 1; }));
  for (int step = 0; step < 5; ++step) EXPECT_EQ(restartStep(), 1);
  EXPECT_EQ(processesOf(installedHelperPath()).size(), 1U);
  support::writeFile(plist, whole);
  EXPECT_TRUE(isRestarted(2));
  EXPECT_EQ(restartStep(), 0);
}

TEST(Launching, HelperInAnotherRuntimeFolderIsStatusOneAndNotJoinedByASecond) {
  embedHelper("1.0");
  const std::string ownFolder = std::getenv("XDG_RUNTIME_DIR");
  const std::string otherFolder = support::sandbox() + "/elsewhere";
  fs::create_directory(otherFolder);
  fs::permissions(otherFolder, fs::perms::owner_all);
  setenv("XDG_RUNTIME_DIR", otherFolder.c_str(), 1);
  ChildProcess other = support::runApplication(makeHost("other", "1.0"), {"90000"});
  setenv("XDG_RUNTIME_DIR", ownFolder.c_str(), 1);
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start other") == 1; }));
  TQHPHelper::share();
  EXPECT_EQ(restartStep(), 1);
  EXPECT_EQ(TQHPHelperCommunicate::share().showHelper(), 1);
  EXPECT_EQ(processesOf(installedHelperPath()).size(), 1U);
  EXPECT_EQ(countInJournal(" up "), 1U);
  other.signal(SIGKILL);
  for (const pid_t pid : processesOf(installedHelperPath())) support::sendSignal(pid, SIGKILL);
  EXPECT_TRUE(isRestarted(1));
}

TEST(Launching, HelperInstalledThroughASymbolicLinkIsFoundAndToldToExitWhenItIsReplaced) {
  fs::create_directory(support::sandbox() + "/real");
  fs::create_directory_symlink("real", support::sandbox() + "/install");
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  EXPECT_TRUE(isRunning(installedHelperPath()));
  const ChildProcess host = support::runApplication(makeHost("newer", "1.0.1"), {"90000", "50"});
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("exit newer") == 1; }));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("up 1.0.1") == 1; }));
  EXPECT_EQ(countInJournal(" up "), 2U);
}

TEST(Launching, OfTwoCopiesUnderOneIdentifierTheNewerGetsTheCallsAndTheOlderAfterIt) {
  embedHelper("1.0");
  const std::string copy = support::makeApplication(support::kHelperName, helperIdentifier(),
                                                    "product-helper", {}, "copy");
  ChildProcess older = support::runApplication(copy);
  ASSERT_TRUE(support::waitUntilReachable(helperIdentifier()));
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  auto& controller = TQHPHelperCommunicate::share();
  EXPECT_TRUE(isRunning(copy));
  EXPECT_TRUE(isRunning(installedHelperPath()));
  const auto newer = processesOf(installedHelperPath());
  ASSERT_EQ(newer.size(), 1U);
  const auto answers = [&](pid_t pid) {
    return controller.clientIDFormHelper() == "client-" + std::to_string(pid);
  };
  EXPECT_TRUE(support::waitUntil([&] { return answers(newer.front()); }));
  support::sendSignal(newer.front(), SIGKILL);
  EXPECT_TRUE(support::waitUntil([&] { return answers(older.pid()); }));
  EXPECT_EQ(restartStep(), 0);
}

/// A folder where the helper's endpoint would be, as long as this exists.
class BlockedEndpoint {
 public:
  BlockedEndpoint() {
    EXPECT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
    fs::create_directory(path_);
  }
  ~BlockedEndpoint() { fs::remove(path_); }
  BlockedEndpoint(const BlockedEndpoint&) = delete;
  BlockedEndpoint& operator=(const BlockedEndpoint&) = delete;

 private:
  std::string path_ =
      clientcomm::runtimeFolderPath() + "/" + clientcomm::fileNameForIdentifier(helperIdentifier());
};

TEST(Launching, HelperThatCannotOpenAtFirstIsNotJoinedByASecond) {
  embedHelper("1.0");
  {
    const BlockedEndpoint blocked;
    const ChildProcess launcher = support::runApplication(makeHost("launcher", "1.0"), {"90000"});
    ASSERT_TRUE(support::waitUntil([] { return countInJournal(" ready") == 1; }));
  }
  // Of a host that did not launch it no call waits for the helper.
  const auto helpers = processesOf(installedHelperPath());
  ASSERT_EQ(helpers.size(), 1U);
  TQHPHelper::share();
  EXPECT_TRUE(support::waitUntil([] {
    // It would be 1 once the helper no longer counts as starting.
    EXPECT_EQ(restartStep(), 0);
    return countInJournal("start P100 1.2.3") == 1 || testing::Test::HasFailure();
  }));
  EXPECT_EQ(processesOf(installedHelperPath()), helpers);
  EXPECT_EQ(countInJournal(" up "), 1U);
}

TEST(Launching, HelperThatCannotOpenAtFirstLeavesTheCallsToOneThatHasOpenedSince) {
  embedHelper("1.0");
  const std::string copy = support::makeApplication(support::kHelperName, helperIdentifier(),
                                                    "product-helper", {}, "copy");
  ChildProcess early = [&] {
    const BlockedEndpoint blocked;
    ChildProcess helper = support::runApplication(copy);
    EXPECT_TRUE(support::waitUntil([] { return countInJournal(" ready") == 1; }));
    return helper;
  }();
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const auto installed = processesOf(installedHelperPath());
  ASSERT_EQ(installed.size(), 1U);
  const auto answers = [](pid_t pid) {
    return TQHPHelperCommunicate::share().clientIDFormHelper() == "client-" + std::to_string(pid);
  };
  ASSERT_TRUE(support::waitUntil([&] { return answers(installed.front()); }));
  EXPECT_FALSE(support::waitUntil([&] { return answers(early.pid()); }, kTwoRetries));
}

TEST(Launching, HostInItsOwnPIDNamespaceUsesTheRunningHelper) {
  embedHelper("1.0");
  const ChildProcess outside = support::runApplication(makeHost("outside", "1.0"), {"90000"});
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start outside") == 1; }));
  constexpr int kNoNamespaces = 77;
  ChildProcess inside = ChildProcess::fork([] {
    if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) return kNoNamespaces;
    const pid_t host = fork();
    if (host == 0) {
      const bool isMounted = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             mount("proc", "/proc", "proc", 0, nullptr) == 0;
      if (!isMounted) _exit(kNoNamespaces);
      TQHPHelper::share();
      _exit(restartStep());
    }
    int status = 0;
    waitpid(host, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
  });
  const int status = inside.wait();
  if (status == kNoNamespaces) GTEST_SKIP() << "no namespaces";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(processesOf(installedHelperPath()).size(), 1U);
  EXPECT_EQ(countInJournal(" up "), 1U);
}

}  // namespace
