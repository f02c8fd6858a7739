#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/workspace.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

// Processes that are killed at random moments: the helper in the midst of everything, and hosts in
// the midst of installing and replacing it.

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using support::ChildProcess;
using support::countInJournal;
namespace fs = std::filesystem;

constexpr char kStayLong[] = "600000";
constexpr char kEndAtOnce[] = "0";
constexpr char kTickInMilliseconds[] = "20";

/// Files and folders of many sizes, so that copying the bundle takes a while and many steps.
void addResources(const std::string& bundle, const std::string& version) {
  const std::string resources = bundle + "/Contents/Resources";
  for (int i = 0; i < 40; ++i) {
    const std::string text(static_cast<std::size_t>(i) * 997, static_cast<char>('a' + i % 26));
    support::writeFile(resources + "/folder" + std::to_string(i % 5) + "/" + std::to_string(i),
                       version + text);
  }
  fs::create_symlink("folder0/0", resources + "/link");
}

std::string installFolder() { return support::sandbox() + "/" + support::kInstallFolder; }

void endHelpers() {
  for (const pid_t pid : support::processesOf(support::installedHelperPath())) {
    support::sendSignal(pid, SIGKILL);
  }
  ASSERT_TRUE(support::waitUntil(
      [] { return support::processesOf(support::installedHelperPath()).empty(); }));
}

/// Whether the process has written exactly this. The end of one process ID may be another's, and
/// over many rounds one may come again.
bool hasWritten(pid_t pid, const std::string& text) {
  const auto lines = support::journal();
  return std::find(lines.begin(), lines.end(), std::to_string(pid) + " " + text) != lines.end();
}

/// Whether the one process of the helper has come up as this version.
bool runsVersion(const std::string& version) {
  const pid_t pid = support::helperPid();
  return pid != 0 && hasWritten(pid, "up " + version);
}

void expectWholeHelper(const std::string& host, int round) {
  EXPECT_TRUE(support::haveSameContents(support::helperIn(host), support::installedHelperPath()))
      << "round " << round;
  EXPECT_TRUE(support::waitUntil([] {
    return std::distance(fs::directory_iterator(installFolder()), {}) == 1;
  })) << "something was left beside the helper in round "
      << round;
}

class Kills : public testing::Test {
 protected:
  /// A host that brings a helper of `version` with many files.
  static std::string makeLargeHost(const std::string& name, const std::string& version) {
    std::string host = support::makeHost(name, version);
    addResources(support::helperIn(host), version);
    return host;
  }

  /// Runs a host for a random time up to `longest` and kills it.
  static void runAndKill(const std::string& host, microseconds longest) {
    const microseconds life = stress::randomTime(longest);
    ChildProcess child = ChildProcess::spawn({support::executableOf(host), kStayLong});
    stress::pause(life);
    child.signal(SIGKILL);
    child.wait();
  }

  /// How long a host takes from its start until the helper that it installed has been started.
  static microseconds timeToInstall(const std::string& host) {
    return stress::timeOf([&] {
      ChildProcess child = ChildProcess::spawn({support::executableOf(host), kEndAtOnce});
      EXPECT_EQ(child.wait(), 0);
    });
  }
};

/// Uses the helper in every way for a moment; what becomes of the single calls does not matter.
void useHelper() {
  auto& controller = TQHPHelperCommunicate::share();
  controller.isAliveHelper();
  controller.clientIDFormHelper();
  controller.showHelper();
  controller.uploadLogByEmail("a", "b", "c", "d");
  TQHPHelper::share().regSuiteInfo();
}

TEST_F(Kills, HelperKilledAtRandomMomentsRunsAndIsStartedByTheNextRestartStep) {
  support::embedHelper("1.0");
  TQHPHelper::share();
  auto& controller = TQHPHelperCommunicate::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start P100 1.2.3") == 1; }));
  const int descriptors = support::openDescriptorCount();
  const int rounds = stress::sizeFor(20, 200);
  microseconds longest{};
  for (int round = 0; round < rounds; ++round) {
    const pid_t helper = support::helperPid();
    ASSERT_GT(helper, 0);
    const microseconds moment = stress::randomTime(milliseconds(20));
    ChildProcess killer = ChildProcess::fork([&] {
      stress::pause(moment);
      return kill(helper, SIGKILL);
    });
    const auto end = std::chrono::steady_clock::now() + moment;
    while (std::chrono::steady_clock::now() < end) useHelper();
    EXPECT_EQ(killer.wait(), 0);
    // Its sockets may outlive its memory for a moment; until it is gone it is a running
    // application.
    ASSERT_TRUE(support::waitUntil([&] { return kill(helper, 0) != 0; }));
    OSErr status = -1;
    longest = std::max(longest, stress::timeOf([&] { status = controller.autoRestartHelper(); }));
    EXPECT_EQ(status, 0) << "round " << round;
    EXPECT_TRUE(support::waitUntil([&] {
      const pid_t next = support::helperPid();
      return next != 0 && hasWritten(next, "start P100 1.2.3");
    })) << "round "
        << round;
  }
  EXPECT_EQ(support::openDescriptorCount(), descriptors);
  EXPECT_EQ(support::threadCount(), 1);
  stress::report("helper killed " + std::to_string(rounds) + " times; longest restart step " +
                 std::to_string(longest.count()) + " us");
}

TEST_F(Kills, HostKilledDuringAnInstallationLeavesTheNextHostAWholeHelper) {
  const std::string host = makeLargeHost("host", "1.0");
  const microseconds whole = timeToInstall(host);
  const int rounds = stress::sizeFor(15, 200);
  int withoutHelper = 0;
  for (int round = 0; round < rounds; ++round) {
    endHelpers();
    fs::remove_all(installFolder());
    runAndKill(host, whole);
    if (!fs::exists(support::installedHelperPath())) ++withoutHelper;
    ChildProcess next = support::runApplication(host, {kStayLong, kTickInMilliseconds});
    EXPECT_TRUE(support::waitUntil([] { return runsVersion("1.0"); })) << "round " << round;
    expectWholeHelper(host, round);
  }
  EXPECT_GT(withoutHelper, 0);
  stress::report("host killed " + std::to_string(rounds) + " times within " +
                 std::to_string(whole.count()) + " us of installing, " +
                 std::to_string(withoutHelper) + " times before the helper was in place");
}

class KillsDuringAReplacement : public Kills,
                                public testing::WithParamInterface<std::array<const char*, 2>> {};

// A version that begins with a letter is newer than none: what a removal left in part would stay.
INSTANTIATE_TEST_SUITE_P(Stress, KillsDuringAReplacement,
                         testing::Values(std::array{"1.0", "1.0.1"}, std::array{"v1", "v2"}),
                         [](const auto& test) {
                           return test.param[0][0] == 'v' ? "LetteredVersions" : "NumericVersions";
                         });

TEST_P(KillsDuringAReplacement, LeaveTheNextHostAWholeHelper) {
  const char* const oldVersion = GetParam().front();
  const char* const newVersion = GetParam().back();
  const std::string older = makeLargeHost("older", oldVersion);
  const std::string newer = makeLargeHost("newer", newVersion);
  timeToInstall(older);
  ASSERT_TRUE(support::waitUntil([&] { return runsVersion(oldVersion); }));
  const microseconds whole = timeToInstall(newer);
  const int rounds = stress::sizeFor(15, 200);
  for (int round = 0; round < rounds; ++round) {
    endHelpers();
    fs::remove_all(installFolder());
    timeToInstall(older);
    ASSERT_TRUE(support::waitUntil([&] { return runsVersion(oldVersion); }));
    runAndKill(newer, whole);
    ChildProcess next = support::runApplication(newer, {kStayLong, kTickInMilliseconds});
    ASSERT_TRUE(support::waitUntil([&] { return runsVersion(newVersion); })) << "round " << round;
    EXPECT_EQ(support::processesOf(support::installedHelperPath()).size(), 1U);
    expectWholeHelper(newer, round);
  }
  stress::report("host killed " + std::to_string(rounds) + " times within " +
                 std::to_string(whole.count()) + " us of replacing");
}

/// Waits until of the processes that lost their parents to this one only helpers are left.
bool haveLaunchesEnded() {
  return support::waitUntil([] {
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    std::ifstream list("/proc/self/task/" + std::to_string(gettid()) + "/children");
    const std::vector<pid_t> children(std::istream_iterator<pid_t>(list), {});
    const auto helpers = support::processesOf(support::installedHelperPath());
    return std::all_of(children.begin(), children.end(), [&](pid_t child) {
      return std::find(helpers.begin(), helpers.end(), child) != helpers.end();
    });
  });
}

bool isOpen(pid_t helper) {
  const auto record = clientcomm::processRecordForPID(helper);
  return record && record->isOpen;
}

TEST_F(Kills, HostKilledInTheMidstOfALaunchIsNotJoinedByASecondHelper) {
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  const std::string helper = support::installedHelperPath();
  ASSERT_FALSE(clientcomm::createDirectoryAtPath(installFolder()));
  ASSERT_TRUE(clientcomm::copyPath(support::embedHelper("1.0"), helper).isOk());
  const auto launch = [&] {
    return clientcomm::Workspace::sharedWorkspace().openFile(helper).isOk();
  };
  const microseconds whole = stress::timeOf([&] { EXPECT_TRUE(launch()); });
  const int rounds = stress::sizeFor(50, 500);
  int leftRunning = 0;
  for (int round = 0; round < rounds; ++round) {
    endHelpers();
    ChildProcess host = ChildProcess::fork([&] { return launch() ? 0 : 1; });
    stress::pause(stress::randomTime(whole));
    host.signal(SIGKILL);
    host.wait();
    if (!support::processesOf(helper).empty()) ++leftRunning;
    // Put off as long as what the killed host has begun takes longer than a launch waits for it.
    EXPECT_TRUE(support::waitUntil(launch)) << "round " << round;
    EXPECT_TRUE(haveLaunchesEnded());
    EXPECT_EQ(support::processesOf(helper).size(), 1U) << "round " << round;
    // Killed before, it would count as a launch that has failed, and the next would be put off.
    EXPECT_TRUE(support::waitUntil([] { return isOpen(support::helperPid()); }));
  }
  endHelpers();
  EXPECT_TRUE(haveLaunchesEnded());
  stress::report("host killed " + std::to_string(rounds) + " times while it launched the helper, " +
                 std::to_string(leftRunning) + " times when it ran already");
}

}  // namespace
