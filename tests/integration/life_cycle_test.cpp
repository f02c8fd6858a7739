#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/process_table.h"
#include "ClientComm/platform/removed_bundle.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// The life of a helper under real hosts: this process is one of them, its own bundle carries the
// helper, and the helper is a process that the library installs and launches.

namespace {

using std::chrono::milliseconds;
using support::ChildProcess;
using support::countInJournal;
using support::embedHelper;
using support::haveSameContents;
using support::helperIdentifier;
using support::helperPid;
using support::installedHelperPath;
using support::makeHost;
using support::processesOf;
namespace fs = std::filesystem;

class LifeCycle : public testing::Test {
 protected:
  /// Runs the restart step until the helper runs and has been started once more.
  static bool isRestarted(std::size_t times) {
    return support::waitUntil([&] {
      TQHPHelper::share().startHelper();
      return countInJournal("start P100 1.2.3") >= times;
    });
  }
};

TEST_F(LifeCycle, FirstUseInstallsLaunchesAndStartsTheHelper) {
  const std::string resource = embedHelper("1.0");
  TQHPHelper::share();
  EXPECT_TRUE(isRestarted(1));
  EXPECT_TRUE(haveSameContents(resource, installedHelperPath()));
  EXPECT_EQ(processesOf(installedHelperPath()).size(), 1U);
  EXPECT_TRUE(support::waitUntil(
      [] { return TQHPHelperCommunicate::share().clientIDFormHelper().has_value(); }));
  EXPECT_EQ(TQHPHelperCommunicate::share().clientID(), "client-" + std::to_string(helperPid()));
}

TEST_F(LifeCycle, LaunchedHelperIsNobodysChildInItsOwnSessionWithoutTheHostsDescriptors) {
  embedHelper("1.0");
  const int own = open("/dev/zero", O_RDONLY);  // without close-on-exec
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const pid_t helper = helperPid();
  EXPECT_EQ(getsid(helper), getpgid(helper));
  EXPECT_NE(getsid(helper), getsid(0));
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(helper) + "/fd")) {
    std::error_code error;
    EXPECT_NE(fs::read_symlink(entry.path(), error), "/dev/zero");
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // neither a child nor a zombie
  close(own);
}

TEST_F(LifeCycle, HelperKilledIsRunningAndStartedAgainAfterTheNextTicks) {
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const pid_t killed = helperPid();
  support::sendSignal(killed, SIGKILL);
  ASSERT_TRUE(support::waitUntil([&] { return helperPid() != killed; }));
  EXPECT_TRUE(isRestarted(2));
  EXPECT_NE(helperPid(), 0);
  EXPECT_NE(helperPid(), killed);
}

TEST_F(LifeCycle, RunningHelperWhoseBundleWasJustRemovedIsStillFoundUnderItsIdentifierAndPath) {
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const pid_t helper = helperPid();
  fs::remove_all(installedHelperPath());
  auto& processes = TQHPProcessList::share();
  EXPECT_TRUE(
      processes.applicationIsRunning(OptionalString(helperIdentifier()), installedHelperPath()));
  const auto info = processes.infoForPID(helper);
  ASSERT_TRUE(info.has_value());
  EXPECT_EQ(info->at("CFBundleIdentifier").stringValue(), helperIdentifier());
  EXPECT_EQ(info->at("BundlePath").stringValue(), installedHelperPath());
}

TEST_F(LifeCycle, NewerHelperReplacesTheInstalledOneAndTheOldProcessIsToldToExit) {
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const pid_t old = helperPid();
  const std::string newer = makeHost("newer", "1.0.1");
  ChildProcess host = support::runApplication(newer, {"90000"});
  EXPECT_TRUE(support::waitUntil([&] { return countInJournal("exit newer") == 1; }));
  EXPECT_TRUE(isRestarted(2));
  EXPECT_TRUE(support::waitUntil([&] { return countInJournal("up 1.0.1") == 1; }));
  EXPECT_NE(helperPid(), old);
  EXPECT_TRUE(haveSameContents(support::helperIn(newer), installedHelperPath()));
}

TEST_F(LifeCycle, HelperThatIsStillStartingWhenItIsReplacedIsToldToExitToo) {
  const std::string older = makeHost("older", "1.0");
  embedHelper("1.0", "hosts/older.app", {{support::kStartDelayKey, "500"}});
  const std::string newer = makeHost("newer", "1.0.1");
  const ChildProcess first = support::runApplication(older, {"90000"});
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("up 1.0") == 1; }));
  const ChildProcess second = support::runApplication(newer, {"90000", "50"});
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("exit newer") == 1; }));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("up 1.0.1") == 1; }));
  EXPECT_EQ(processesOf(installedHelperPath()).size(), 1U);
}

TEST_F(LifeCycle, ReplacementCutShortBeforeTheExitCommandIsTakenUpByTheNextHost) {
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const std::string newer = makeHost("newer", "1.0.1");
  const fs::path installed = installedHelperPath();
  const fs::path mark =
      installed.parent_path() / ("." + installed.filename().string() + ".removed");
  fs::create_directory(mark);
  fs::remove_all(installed);
  const ChildProcess host = support::runApplication(newer, {"90000", "50"});
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("exit newer") == 1; }));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("up 1.0.1") == 1; }));
  EXPECT_TRUE(haveSameContents(support::helperIn(newer), installed));
  EXPECT_FALSE(fs::exists(mark));
}

TEST_F(LifeCycle, HelperMovedAsideByAHostThatDiedIsToldToExitByTheNextOne) {
  embedHelper("v1");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  std::string place;
  ASSERT_TRUE(clientcomm::moveAside(installedHelperPath(), place).isOk());
  const std::string newer = makeHost("newer", "v2");
  const ChildProcess host = support::runApplication(newer, {"90000", "50"});
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("exit newer") == 1; }));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("up v2") == 1; }));
  EXPECT_TRUE(haveSameContents(support::helperIn(newer), installedHelperPath()));
  EXPECT_FALSE(fs::exists(place));
}

/// Makes restart steps until the new helper runs, the old one has taken the exit command, and its
/// copy is gone. On a busy machine the new one may be up before.
bool isReplacedByRestartSteps() {
  const fs::path folder = fs::path(installedHelperPath()).parent_path();
  return support::waitUntil([&] {
    TQHPHelper::share().startHelper();
    return countInJournal("up 1.0.1") == 1 && countInJournal("exit P100") == 1 &&
           std::distance(fs::directory_iterator(folder), {}) == 1;
  });
}

TEST_F(LifeCycle, OldHelperThatDoesNotTakeTheExitCommandHoldsNoHostUpAndGetsItLater) {
  const std::string older = makeHost("older", "1.0");
  embedHelper("1.0", "hosts/older.app", {{support::kStartDelayKey, support::kStopped}});
  embedHelper("1.0.1");
  const ChildProcess first = support::runApplication(older, {"90000"});
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("up 1.0") == 1; }));
  const pid_t old = helperPid();
  const std::string stat = "/proc/" + std::to_string(old) + "/stat";
  ASSERT_TRUE(support::waitUntil(
      [&] { return support::readFile(stat).find(") T ") != std::string::npos; }));
  const auto start = std::chrono::steady_clock::now();
  TQHPHelper::share();
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(4'000));
  EXPECT_TRUE(
      haveSameContents(support::helperIn(support::hostBundlePath()), installedHelperPath()));
  const auto step = std::chrono::steady_clock::now();
  TQHPHelper::share().startHelper();
  EXPECT_LT(std::chrono::steady_clock::now() - step, milliseconds(4'000));
  EXPECT_EQ(countInJournal("exit"), 0U);
  support::sendSignal(old, SIGCONT);
  EXPECT_TRUE(isReplacedByRestartSteps());
}

TEST_F(LifeCycle, OldHelperThatIsNotFoundWhileItIsReplacedIsToldToExitByTheNextRestartStep) {
  const ChildProcess older = support::runApplication(makeHost("older", "1.0"), {"90000"});
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start older") == 1; }));
  embedHelper("1.0.1");
  const auto system = clientcomm::replaceSysctl(
      [](const int*, unsigned, void*, std::size_t*, const void*, std::size_t) noexcept {
        errno = EMFILE;
        return -1;
      });
  TQHPHelperCommunicate::share();
  clientcomm::replaceSysctl(system);
  EXPECT_TRUE(
      haveSameContents(support::helperIn(support::hostBundlePath()), installedHelperPath()));
  EXPECT_EQ(countInJournal("exit"), 0U);
  EXPECT_TRUE(isReplacedByRestartSteps());
}

/// A process that holds the install directory and does nothing with it.
ChildProcess holdInstallDirectory() {
  const std::string directory = fs::path(installedHelperPath()).parent_path();
  fs::create_directories(directory);
  ChildProcess holder = ChildProcess::fork([directory] {
    const clientcomm::DirectoryLock lock(directory, std::chrono::seconds(10));
    for (;;) pause();
    return 1;
  });
  EXPECT_TRUE(support::waitUntil(
      [&directory] { return !clientcomm::DirectoryLock(directory, milliseconds(0)).isHeld(); }));
  return holder;
}

TEST_F(LifeCycle, ProcessThatHoldsTheInstallDirectoryDelaysOnlyTheUpgrade) {
  embedHelper("2.0");
  support::makeApplication(support::kHelperName, helperIdentifier(), "product-helper",
                           {{"CFBundleVersion", "1.0"}}, support::kInstallFolder);
  ChildProcess holder = holdInstallDirectory();
  const auto start = std::chrono::steady_clock::now();
  TQHPHelper::share();
  TQHPHelper::share().startHelper();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("up 1.0") == 1; }));
  holder.signal(SIGKILL);
  holder.wait();
  EXPECT_TRUE(support::waitUntil([] {
    TQHPHelper::share().startHelper();
    return countInJournal("up 2.0") == 1;
  }));
  EXPECT_EQ(countInJournal("exit P100"), 1U);
}

TEST_F(LifeCycle, ProcessThatHoldsTheInstallDirectoryForeverBoundsTheStartUpAndNoRestartStep) {
  embedHelper("1.0");
  ChildProcess holder = holdInstallDirectory();
  auto start = std::chrono::steady_clock::now();
  TQHPHelper::share();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(18));
  start = std::chrono::steady_clock::now();
  EXPECT_EQ(TQHPHelperCommunicate::share().autoRestartHelper(), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  holder.signal(SIGKILL);
  holder.wait();
  EXPECT_TRUE(isRestarted(1));
}

TEST_F(LifeCycle, OlderHelperOfAnotherHostChangesNothing) {
  embedHelper("2.0.1");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const pid_t helper = helperPid();
  ChildProcess host = support::runApplication(makeHost("older", "2.0"), {"200"});
  EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(helperPid(), helper);
  EXPECT_EQ(countInJournal("exit"), 0U);
  EXPECT_EQ(countInJournal("start older"), 1U);
  EXPECT_EQ(clientcomm::Bundle(installedHelperPath()).infoString("CFBundleVersion"), "2.0.1");
}

TEST_F(LifeCycle, TenHostsAtOnceEndWithOneHelperAndOneIntactCopy) {
  std::vector<std::string> paths;
  for (int i = 0; i < 10; ++i) paths.push_back(makeHost("host" + std::to_string(i), "1.0"));
  std::vector<ChildProcess> hosts;
  for (const auto& path : paths) hosts.push_back(support::runApplication(path, {"90000"}));
  // Each starts it at once, or with its first tick where the helper was not up yet.
  EXPECT_TRUE(support::waitUntil(
      [&] {
        for (int i = 0; i < 10; ++i) {
          if (countInJournal("start host" + std::to_string(i)) == 0) return false;
        }
        return true;
      },
      std::chrono::seconds(60)));
  EXPECT_EQ(processesOf(installedHelperPath()).size(), 1U);
  EXPECT_EQ(countInJournal("up 1.0"), 1U);
  EXPECT_TRUE(haveSameContents(support::helperIn(paths[0]), installedHelperPath()));
  EXPECT_EQ(std::distance(fs::directory_iterator(support::sandbox() + "/install"), {}), 1);
}

TEST_F(LifeCycle, HostInAPipelineEndsAlthoughTheHelperRunsOn) {
  const std::string host = makeHost("piped", "1.0");
  ChildProcess shell = ChildProcess::spawn(
      {"/bin/sh", "-c", "'" + support::executableOf(host) + "' 300 | cat; echo ended"});
  EXPECT_EQ(shell.readLine(), "ended");
  EXPECT_EQ(shell.wait(), 0);
  EXPECT_NE(helperPid(), 0);
}

TEST_F(LifeCycle, HelperWithoutExecutableIsStatusOneAndRecoversWhenItIsThere) {
  const std::string resource = embedHelper("1.0");
  const std::string kept = support::sandbox() + "/kept";
  fs::rename(support::executableOf(resource), kept);
  TQHPHelper::share();
  EXPECT_EQ(TQHPHelperCommunicate::share().autoRestartHelper(), 1);
  EXPECT_EQ(TQHPHelperCommunicate::share().showHelper(), 1);
  fs::rename(kept, support::executableOf(installedHelperPath()));
  EXPECT_TRUE(isRestarted(1));
}

TEST_F(LifeCycle, InstallDirectoryThatCannotBeWrittenIsStatusOneAndRecoversWhenItCan) {
  embedHelper("1.0");
  support::writeFile(support::sandbox() + "/install", "a file in its place");
  TQHPHelper::share();
  EXPECT_EQ(TQHPHelperCommunicate::share().autoRestartHelper(), 1);
  fs::remove(support::sandbox() + "/install");
  EXPECT_TRUE(isRestarted(1));
}

TEST_F(LifeCycle, InstalledCopyWithACorruptInfoPlistIsReplaced) {
  const std::string resource = embedHelper("1.0");
  support::writeFile(installedHelperPath() + "/Contents/Info.plist", "<plist><dict><key>");
  TQHPHelper::share();
  EXPECT_TRUE(isRestarted(1));
  EXPECT_TRUE(haveSameContents(resource, installedHelperPath()));
}

TEST_F(LifeCycle, HelperWithACorruptInfoPlistIsStatusOneAndTheHostGoesOn) {
  const std::string resource = embedHelper("1.0");
  const std::string good = support::readFile(resource + "/Contents/Info.plist");
  support::writeFile(resource + "/Contents/Info.plist", "bplist00 rubbish");
  fs::remove(support::executableOf(resource));
  TQHPHelper::share();
  EXPECT_EQ(TQHPHelperCommunicate::share().autoRestartHelper(), 1);
  embedHelper("1.0");
  fs::remove_all(installedHelperPath());
  EXPECT_TRUE(isRestarted(1));
  EXPECT_EQ(support::readFile(installedHelperPath() + "/Contents/Info.plist"), good);
}

TEST_F(LifeCycle, CorruptPreferencesFileIsKeptAside) {
  embedHelper("1.0");
  const std::string folder = support::sandbox() + "/config/Preferences";
  support::writeFile(folder + "/com.example.testhost.plist", "not a property list");
  TQHPHelper::share();
  const auto now = clientcomm::dictionaryWithContentsOfFile(folder + "/com.example.testhost.plist");
  ASSERT_TRUE(now.has_value());
  EXPECT_EQ(now->at("PID").stringValue(), "P100");
  int kept = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (support::readFile(entry.path()) == "not a property list") ++kept;
  }
  EXPECT_EQ(kept, 1);
}

TEST_F(LifeCycle, HelperThatEndsIsToldApartFromOneThatIsStillThere) {
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  auto& controller = TQHPHelperCommunicate::share();
  EXPECT_EQ(controller.isAliveHelper(), 0);
  TQHPHelperControl::share().exitHelper("P100", "1.2.3");
  EXPECT_TRUE(support::waitUntil([&] { return controller.isAliveHelper() == -600; }));
  EXPECT_TRUE(isRestarted(2));
}

TEST_F(LifeCycle, HostHasOneThreadAndItsEndpointAsOnlyFurtherDescriptorAfterEverything) {
  embedHelper("1.0");
  g_main_context_default();  // the host's own: it runs a main loop
  const int before = support::openDescriptorCount();
  TQHPHelper& helper = TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  auto& controller = TQHPHelperCommunicate::share();
  controller.showHelper();
  controller.uploadLogByEmail("a", "b", "c", "d");
  controller.productUpgrade();
  controller.setTipsEnable(false);
  helper.regSuiteInfo();
  helper.productCollectStatus();
  helper.setDataCollectPID("Q");
  support::sendSignal(helperPid(), SIGKILL);
  ASSERT_TRUE(isRestarted(2));
  helper.stopHelper();
  support::runLoopUntil([] { return false; }, milliseconds(50));
  EXPECT_EQ(support::openDescriptorCount(), before + 1);
  EXPECT_EQ(support::threadCount(), 1);
}

TEST_F(LifeCycle, TimerStartsAStoppedHelperAgain) {
  embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(isRestarted(1));
  const auto stopped = std::chrono::steady_clock::now();
  TQHPHelper::share().stopHelper();
  EXPECT_TRUE(support::runLoopUntil([] { return countInJournal("start P100") == 2; }));
  EXPECT_LE(std::chrono::steady_clock::now() - stopped, std::chrono::seconds(15));
}

}  // namespace
