#include "ClientComm/platform/linux/running_application.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/workspace.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

// What counts as the running application, and what becomes of launches that come to nothing.

namespace {

namespace fs = std::filesystem;
using clientcomm::kLaunchLimit;
using clientcomm::OptionalString;
using support::ChildProcess;

std::string identifier() {
  return "com.example.runner." + fs::path(support::sandbox()).filename().string();
}

std::string launchList() { return support::sandbox() + "/launches"; }

int launchCount() {
  std::ifstream list(launchList());
  int count = 0;
  for (std::string line; std::getline(list, line);) ++count;
  return count;
}

void noteStart() {
  std::ofstream(launchList(), std::ios::app) << getpid() << std::endl;
  std::puts("ready");
  std::fflush(stdout);
}

[[noreturn]] void stay() {
  for (;;) pause();
}

// Opens to events and stays. With an argument it first forks a child that stays too, and tells its
// process ID.
const support::Role opening("opening", [](const std::vector<std::string>& arguments) -> int {
  TQHPAppleEventProcesser::share();
  if (!arguments.empty()) {
    const pid_t child = fork();
    if (child == 0) stay();
    std::printf("%d\n", child);
  }
  noteStart();
  stay();
});

const support::Role neverOpening("never-opening", [](const std::vector<std::string>&) -> int {
  noteStart();
  stay();
});

const support::Role endingAtOnce("ending-at-once", [](const std::vector<std::string>&) -> int {
  noteStart();
  return 0;
});

const support::Role otherUser("of-another-user", [](const std::vector<std::string>&) -> int {
  if (setuid(12345) != 0) return 1;
  std::puts("ready");
  std::fflush(stdout);
  stay();
});

// Opens, while the kernel keeps from others what it runs.
const support::Role notDumpable("not-dumpable", [](const std::vector<std::string>&) -> int {
  prctl(PR_SET_DUMPABLE, 0);
  TQHPAppleEventProcesser::share();
  noteStart();
  stay();
});

// Says nothing of itself, and the kernel keeps from others what it runs.
const support::Role silent("silent", [](const std::vector<std::string>&) -> int {
  prctl(PR_SET_DUMPABLE, 0);
  noteStart();
  stay();
});

std::string makeRunner(const std::string& role, const std::string& folder = "apps") {
  return support::makeApplication("Runner", identifier(), role, {}, folder);
}

// The same bundle, as if nothing had been said of its identifier.
void makeNameless(const std::string& application, const std::string& role) {
  support::writeFile(
      application + "/Contents/Info.plist",
      clientcomm::xmlPropertyList({{"CFBundleExecutable", "Runner"}, {"TestRole", role}}));
}

bool isRunning(const std::string& application) {
  return TQHPProcessList::share().applicationIsRunning(OptionalString(identifier()), application);
}

bool openApplication(const std::string& application) {
  return clientcomm::Workspace::sharedWorkspace().openFile(application).isOk();
}

ChildProcess start(const std::string& application, const std::vector<std::string>& arguments = {}) {
  ChildProcess process = support::runApplication(application, arguments);
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

void waitUntilOlderThanTheLaunchLimit(pid_t pid) {
  const auto startTime = clientcomm::processStartTime(pid);
  ASSERT_TRUE(startTime);
  EXPECT_TRUE(
      support::waitUntil([&] { return clientcomm::ageByStartTime(*startTime) > kLaunchLimit; },
                         std::chrono::seconds(60)));
}

// --- What counts as running. ---

TEST(RunningApplication, AnotherUsersProcessFromTheSamePathDoesNotCount) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
  const std::string application = makeRunner("of-another-user");
  const ChildProcess other = start(application);
  EXPECT_FALSE(isRunning(application));
  makeRunner("opening");
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == 1; }));
  EXPECT_TRUE(isRunning(application));
}

TEST(RunningApplication, AToolBesideTheExecutableDoesNotCountAlthoughItTakesEvents) {
  const std::string application = makeRunner("opening");
  const std::string tool = fs::path(support::executableOf(application)).parent_path() / "tool";
  fs::create_hard_link(support::executableOf(application), tool);
  ChildProcess process = ChildProcess::spawn({tool});
  ASSERT_EQ(process.readLine(), "ready");
  EXPECT_FALSE(isRunning(application));
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == 2; }));
  EXPECT_TRUE(isRunning(application));
  fs::remove(application + "/Contents/Info.plist");
  EXPECT_TRUE(isRunning(application));
}

TEST(RunningApplication, AnExecutableThatIsASymbolicLinkInsideTheBundleCounts) {
  const std::string application = makeRunner("never-opening");
  const std::string executable = support::executableOf(application);
  fs::rename(executable, executable + ".bin");
  fs::create_symlink("Runner.bin", executable);
  ChildProcess process = ChildProcess::spawn({executable});
  ASSERT_EQ(process.readLine(), "ready");
  EXPECT_TRUE(isRunning(application));
}

TEST(RunningApplication, AForkedCopyDoesNotCountBesideItsParentNorAfterIt) {
  const std::string application = makeRunner("opening");
  ChildProcess process = support::runApplication(application, {"fork"});
  const pid_t copy = std::atoi(process.readLine().value_or("0").c_str());
  ASSERT_GT(copy, 0);
  EXPECT_EQ(process.readLine(), "ready");
  EXPECT_FALSE(clientcomm::bundleProcess(copy)->presence == clientcomm::Presence::kRunning);
  EXPECT_TRUE(clientcomm::bundleProcess(process.pid())->presence == clientcomm::Presence::kRunning);
  waitUntilOlderThanTheLaunchLimit(copy);
  process.signal(SIGKILL);
  process.wait();
  EXPECT_FALSE(isRunning(application));
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == 2; }));
}

TEST(RunningApplication, OneThatDoesNotOpenCountsOnlyUntilTheLaunchLimit) {
  const std::string application = makeRunner("never-opening");
  const ChildProcess process = start(application);
  EXPECT_TRUE(isRunning(application));
  waitUntilOlderThanTheLaunchLimit(process.pid());
  EXPECT_FALSE(isRunning(application));
  makeRunner("opening");
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == 2; }));
}

TEST(RunningApplication, OneWhoseRecordIsLostCountsByItsEndpointAndWritesTheRecordAgain) {
  const std::string application =
      support::makeApplication("Runner", identifier(), support::kEchoRole);
  const ChildProcess process = support::runApplication(application);
  ASSERT_TRUE(support::waitUntilReachable(identifier()));
  const std::string record =
      clientcomm::runtimeFolderPath() + "/" + clientcomm::processRecordName(process.pid());
  ASSERT_TRUE(support::waitUntil([&] { return fs::exists(record); }));
  waitUntilOlderThanTheLaunchLimit(process.pid());
  fs::remove(record);
  EXPECT_TRUE(isRunning(application));
  EXPECT_TRUE(support::waitUntil([&] { return fs::exists(record); }));
}

TEST(RunningApplication, OneThatIsOpenWhileItsInfoPlistIsDamagedCounts) {
  const std::string application = makeRunner("opening");
  const ChildProcess process = start(application);
  support::writeFile(application + "/Contents/Info.plist", "<plist><dict>");
  EXPECT_TRUE(isRunning(application));
}

// --- Where the kernel does not tell what a process runs. ---

void dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, 2> none{};
  ASSERT_EQ(syscall(SYS_capset, &header, none.data()), 0);
}

TEST(RunningApplication, OneWhoseExecutableMayNotBeReadCountsByItsRecord) {
  const std::string application = makeRunner("not-dumpable");
  const ChildProcess process = start(application);
  dropCapabilities();
  std::error_code error;
  static_cast<void>(fs::read_symlink("/proc/" + std::to_string(process.pid()) + "/exe", error));
  ASSERT_EQ(error.value(), EACCES);
  EXPECT_TRUE(isRunning(application));
  EXPECT_FALSE(isRunning(application + "x"));
  EXPECT_TRUE(openApplication(application));
  EXPECT_EQ(launchCount(), 1);
  EXPECT_FALSE(TQHPProcessList::share().infoForPID(1));
}

/// A /proc that no other process opens, and how often this one has opened it.
class PrivateProcFolder {
 public:
  /// What `ownMounts` gives must be there.
  PrivateProcFolder() {
    EXPECT_EQ(mount("proc", "/proc", "proc", 0, nullptr), 0);
    // Without the closing, one opening after the other would be told once.
    EXPECT_GE(inotify_add_watch(watch_.get(), "/proc", IN_OPEN | IN_CLOSE), 0);
  }

  int timesOpened() const {
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(watch_.get(), events, sizeof events);
    int count = 0;
    for (ssize_t at = 0; at < size;) {
      const auto* const event = reinterpret_cast<const inotify_event*>(events + at);
      const bool isOfEntry = event->len != 0;
      if ((event->mask & IN_OPEN) != 0 && !isOfEntry) ++count;
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    return count;
  }

 private:
  clientcomm::ScopedFd watch_{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
};

TEST(RunningApplication, TheProcessesAreReadOnceBesideOneOfWhichNothingIsKnown) {
  if (!support::ownMounts()) GTEST_SKIP() << "this process may not mount anything";
  const ChildProcess process = start(makeRunner("silent"));
  const PrivateProcFolder processes;
  dropCapabilities();
  std::error_code error;
  static_cast<void>(fs::read_symlink("/proc/" + std::to_string(process.pid()) + "/exe", error));
  ASSERT_EQ(error.value(), EACCES);
  EXPECT_EQ(clientcomm::presenceOf(support::sandbox() + "/apps/Other.app", identifier()),
            clientcomm::Presence::kAbsent);
  EXPECT_EQ(processes.timesOpened(), 1);
}

// --- The path that an application is launched by. ---

TEST(RunningApplicationPath, IsTheOneItWasLaunchedByAlsoThroughASymbolicLink) {
  const std::string application = makeRunner("opening");
  fs::create_directory_symlink("apps", support::sandbox() + "/link");
  const std::string linked = support::sandbox() + "/link/Runner.app";
  const ChildProcess process = start(linked);
  EXPECT_TRUE(isRunning(linked));
  EXPECT_FALSE(isRunning(application));
  fs::remove_all(application);
  EXPECT_TRUE(isRunning(linked));
}

TEST(RunningApplicationPath, IsTheOneItWasLaunchedByBeforeItOpens) {
  makeRunner("never-opening");
  fs::create_directory_symlink("apps", support::sandbox() + "/link");
  const std::string linked = support::sandbox() + "/link/Runner.app";
  ASSERT_TRUE(openApplication(linked));
  EXPECT_TRUE(isRunning(linked));
  ASSERT_TRUE(support::waitUntil([] { return launchCount() == 1; }));
  fs::remove_all(support::sandbox() + "/apps/Runner.app");
  EXPECT_TRUE(isRunning(linked));
}

TEST(RunningApplicationPath, IsTheKernelsWhereTheExecutableIsALinkToAnotherBundle) {
  const std::string application = makeRunner("opening");
  const std::string other = support::sandbox() + "/Other.app/Contents/Linux/Other";
  fs::create_directories(fs::path(other).parent_path());
  fs::create_symlink(support::executableOf(application), other);
  ChildProcess process = ChildProcess::spawn({other});
  ASSERT_EQ(process.readLine(), "ready");
  EXPECT_TRUE(isRunning(application));
}

// --- Launches that come to nothing. ---

TEST(FailedLaunch, BundleWithoutAnIdentifierIsLaunchedOnceUntilItIsRepaired) {
  const std::string application = makeRunner("opening");
  makeNameless(application, "opening");
  EXPECT_TRUE(openApplication(application));
  ASSERT_TRUE(support::waitUntil([] { return launchCount() == 1; }));
  for (int step = 0; step < 5; ++step) openApplication(application);
  EXPECT_TRUE(support::waitUntil([&] { return !openApplication(application); }));
  EXPECT_EQ(launchCount(), 1);
  makeRunner("opening");
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == 2; }));
  EXPECT_TRUE(support::waitUntilReachable(identifier()));
  EXPECT_TRUE(isRunning(application));
}

TEST(FailedLaunch, OneThatLivesUnopenedIsNotJoinedByAnother) {
  const std::string application = makeRunner("never-opening");
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([&] { return !openApplication(application); }));
  EXPECT_FALSE(isRunning(application));
  // Nor by another host.
  ChildProcess host = ChildProcess::fork([&] { return openApplication(application) ? 0 : 1; });
  EXPECT_EQ(host.wait(), 1);
  EXPECT_EQ(launchCount(), 1);
}

TEST(FailedLaunch, OneThatEndsAtOnceIsLaunchedThreeTimesAndThenPutOffByAllHosts) {
  const std::string application = makeRunner("ending-at-once");
  EXPECT_TRUE(support::waitUntil([&] { return !openApplication(application); }));
  EXPECT_EQ(launchCount(), clientcomm::kLaunchesAtOnce);
  ChildProcess host = ChildProcess::fork([&] { return openApplication(application) ? 0 : 1; });
  EXPECT_EQ(host.wait(), 1);
  EXPECT_EQ(launchCount(), clientcomm::kLaunchesAtOnce);
  makeRunner("opening");
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == clientcomm::kLaunchesAtOnce + 1; }));
}

TEST(FailedLaunch, OneThatHadOpenedBeforeItWasKilledIsLaunchedAgainEachTime) {
  const std::string application = makeRunner("opening");
  for (int round = 1; round <= 8; ++round) {
    EXPECT_TRUE(openApplication(application)) << round;
    ASSERT_TRUE(support::waitUntil([&] { return launchCount() == round; }));
    for (const pid_t pid : support::processesOf(application)) support::sendSignal(pid, SIGKILL);
    ASSERT_TRUE(support::waitUntil([&] { return support::processesOf(application).empty(); }));
  }
}

// --- Processes that this one cannot reach, or not see. ---

TEST(UnreachableApplication, InAnotherRuntimeFolderIsNotJoinedByASecondOne) {
  const std::string application = makeRunner("opening");
  const std::string ownFolder = std::getenv("XDG_RUNTIME_DIR");
  const std::string otherFolder = support::sandbox() + "/elsewhere";
  fs::create_directory(otherFolder);
  fs::permissions(otherFolder, fs::perms::owner_all);
  ASSERT_NE(clientcomm::runtimeFolderPath(), otherFolder);
  setenv("XDG_RUNTIME_DIR", otherFolder.c_str(), 1);
  ChildProcess process = start(application);
  setenv("XDG_RUNTIME_DIR", ownFolder.c_str(), 1);
  EXPECT_FALSE(isRunning(application));
  EXPECT_FALSE(openApplication(application));
  waitUntilOlderThanTheLaunchLimit(process.pid());
  EXPECT_FALSE(isRunning(application));
  EXPECT_FALSE(openApplication(application));
  EXPECT_EQ(launchCount(), 1);
  process.signal(SIGKILL);
  process.wait();
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == 2; }));
}

constexpr int kNoNamespaces = 77;

/// Runs `body` in a PID namespace of its own, with the same folders. Its exit status is the body's.
ChildProcess startInPIDNamespace(const std::function<int()>& body) {
  return ChildProcess::fork([&] {
    if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) return kNoNamespaces;
    const pid_t inside = fork();
    if (inside == 0) {
      const bool isMounted = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             mount("proc", "/proc", "proc", 0, nullptr) == 0;
      _exit(isMounted ? body() : kNoNamespaces);
    }
    int status = 0;
    waitpid(inside, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
  });
}

int runInPIDNamespace(const std::function<int()>& body) { return startInPIDNamespace(body).wait(); }

TEST(UnseenApplication, IsFoundByTheRecordOfItsEndpointFromAnotherPIDNamespace) {
  const std::string application = makeRunner("opening");
  const ChildProcess process = start(application);
  const int status = runInPIDNamespace([&] {
    if (TQHPProcessList::share().infoForPID(process.pid())) return 2;
    if (!isRunning(application)) return 3;
    if (isRunning(application + "/") || isRunning("/elsewhere/Runner.app")) return 4;
    return openApplication(application) ? 0 : 5;
  });
  if (status == kNoNamespaces) GTEST_SKIP() << "no namespaces";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(launchCount(), 1);
}

TEST(UnseenApplication, KeepsItsRecordWhenOneInAnotherPIDNamespaceOpens) {
  const std::string application = makeRunner("opening");
  const ChildProcess process = start(application);
  const std::string record =
      clientcomm::runtimeFolderPath() + "/" + clientcomm::processRecordName(process.pid());
  ASSERT_TRUE(fs::exists(record));
  const int status = runInPIDNamespace([] {
    clientcomm::recordOwnProcess().ignore();
    return 0;
  });
  if (status == kNoNamespaces) GTEST_SKIP() << "no namespaces";
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(fs::exists(record));
}

// Both have the process ID 1.
TEST(UnseenApplication, AndAnotherOfTheSameProcessIDHaveARecordEach) {
  const auto exists = [](const std::string& name) {
    return fs::exists(support::sandbox() + "/" + name);
  };
  const auto hasOwnRecord = [] {
    const auto record = clientcomm::processRecordForPID(getpid());
    return record && record->pidNamespace == clientcomm::ownPIDNamespace();
  };
  ChildProcess first = startInPIDNamespace([&] {
    clientcomm::recordOwnProcess().ignore();
    support::writeFile(support::sandbox() + "/first", "");
    if (!support::waitUntil([&] { return exists("second"); })) return 2;
    return hasOwnRecord() ? 0 : 3;
  });
  const int second = runInPIDNamespace([&] {
    if (!support::waitUntil([&] { return exists("first"); })) return 2;
    clientcomm::recordOwnProcess().ignore();
    support::writeFile(support::sandbox() + "/second", "");
    return hasOwnRecord() ? 0 : 3;
  });
  if (second == kNoNamespaces) GTEST_SKIP() << "no namespaces";
  EXPECT_EQ(second, 0);
  EXPECT_EQ(first.wait(), 0);
}

TEST(UnseenApplication, CountsForThoseWhoSeeItThoughItsRecordBearsAnotherProcessID) {
  const std::string application = makeRunner("opening");
  const ChildProcess inside = startInPIDNamespace([&] {
    const std::string executable = support::executableOf(application);
    execl(executable.c_str(), executable.c_str(), nullptr);
    return 1;
  });
  const auto hasStarted = [&] { return support::processesOf(application).size() == 1; };
  if (!support::waitUntil([&] { return hasStarted() && launchCount() == 1; },
                          std::chrono::seconds(5))) {
    GTEST_SKIP() << "no namespaces";
  }
  const pid_t pid = support::processesOf(application).front();
  waitUntilOlderThanTheLaunchLimit(pid);
  EXPECT_TRUE(isRunning(application));
  EXPECT_TRUE(openApplication(application));
  EXPECT_EQ(launchCount(), 1);
  support::sendSignal(pid, SIGKILL);
}

TEST(UnseenApplication, ThatWasKilledIsLaunchedAgain) {
  const std::string application = makeRunner("opening");
  ChildProcess process = start(application);
  process.signal(SIGKILL);
  process.wait();
  EXPECT_FALSE(isRunning(application));
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(support::waitUntil([] { return launchCount() == 2; }));
}

}  // namespace
