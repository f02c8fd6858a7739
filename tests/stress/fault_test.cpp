#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/process_table.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/user_defaults.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/stress/clock.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// A system that refuses: no room on the disk, no descriptors, no processes, no memory, folders that
// may not be written or are somebody else's. The host goes on, is told so by a status, and needs
// nothing but its next restart step once the system gives again.

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using support::ChildProcess;
using support::countInJournal;
namespace fs = std::filesystem;

constexpr char kStart[] = "start P100 1.2.3";

TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

/// Runs restart steps, as the ticks of the facade do, until the helper has been started once more.
bool isStartedOnceMore(std::size_t before) {
  return support::waitUntil([&] {
    controller().autoRestartHelper();
    return countInJournal(kStart) > before;
  });
}

bool isStartedOnceMore() { return isStartedOnceMore(countInJournal(kStart)); }

/// Ends the helper, and waits until it is gone.
void killHelper() {
  const pid_t helper = support::helperPid();
  ASSERT_NE(helper, 0);
  support::sendSignal(helper, SIGKILL);
  ASSERT_TRUE(support::waitUntil([&] { return support::helperPid() != helper; }));
}

/// A limit of this process, for as long as this object lives.
class LimitInForce {
 public:
  LimitInForce(__rlimit_resource resource, rlim_t limit) : resource_(resource) {
    EXPECT_EQ(getrlimit(resource_, &before_), 0);
    const rlimit lowered{limit, before_.rlim_max};
    EXPECT_EQ(setrlimit(resource_, &lowered), 0);
  }
  ~LimitInForce() { EXPECT_EQ(setrlimit(resource_, &before_), 0); }
  LimitInForce(const LimitInForce&) = delete;
  LimitInForce& operator=(const LimitInForce&) = delete;

 private:
  __rlimit_resource resource_;
  rlimit before_{};
};

bool mountSmallDisk(const std::string& path, const std::string& options) {
  fs::create_directories(path);
  return mount("tmpfs", path.c_str(), "tmpfs", 0, (options + ",mode=0700").c_str()) == 0;
}

class Faults : public testing::Test {
 protected:
  /// Every test is one of an ordinary user, to whom the system does refuse.
  static void becomeUser() {
    stress::becomeOrdinaryUser();
    ASSERT_FALSE(HasFatalFailure());
  }
  static void enlarge(const std::string& path, const std::string& options) {
    ASSERT_EQ(mount("tmpfs", path.c_str(), "tmpfs", MS_REMOUNT, options.c_str()), 0);
  }
  static std::string folder(const std::string& name) { return support::sandbox() + "/" + name; }
};

TEST_F(Faults, DiskFullDuringInstallationIsStatusOneAndLeavesNothingBehind) {
  const std::string install = folder(support::kInstallFolder);
  if (!support::ownMounts() || !mountSmallDisk(install, "size=64k")) GTEST_SKIP() << "no mounts";
  const std::string resource = support::embedHelper("1.0");
  TQHPHelper::share();
  EXPECT_EQ(controller().autoRestartHelper(), 1);
  EXPECT_TRUE(fs::is_empty(install));
  enlarge(install, "size=1g");
  EXPECT_TRUE(isStartedOnceMore());
  EXPECT_TRUE(support::haveSameContents(resource, support::installedHelperPath()));
}

TEST_F(Faults, ReplacementOnAFullDiskIsMadeByTheNextRestartStepThatFindsRoom) {
  const std::string install = folder(support::kInstallFolder);
  if (!support::ownMounts() || !mountSmallDisk(install, "size=1g")) GTEST_SKIP() << "no mounts";
  const std::string older = support::makeHost("older", "0.9");
  ASSERT_EQ(ChildProcess::spawn({support::executableOf(older), "0"}).wait(), 0);
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start older") == 1; }));
  const std::string resource = support::embedHelper("1.0");
  // Room for nothing once the older one is gone.
  const std::string filler = install + "/filler";
  std::ofstream fill(filler, std::ios::binary);
  const std::string chunk(1 << 20, 'f');
  while (fill.write(chunk.data(), static_cast<std::streamsize>(chunk.size())).flush()) {
  }
  // The copy fails while the older one is there. The launch tries once more, when it is gone, and
  // may have found room and started the new one.
  TQHPHelper::share();
  const bool isWhole = support::haveSameContents(resource, support::installedHelperPath());
  EXPECT_TRUE(isWhole || !fs::exists(support::installedHelperPath()));
  fs::remove(filler);
  // The older one may take its last call before it exits.
  EXPECT_TRUE(support::waitUntil([&] {
    controller().autoRestartHelper();
    return support::haveSameContents(resource, support::installedHelperPath()) &&
           countInJournal(std::to_string(support::helperPid()) + " " + kStart) > 0;
  }));
}

TEST_F(Faults, DiskFullForThePreferencesLosesNoKeyOnTheDiskAndNoneThatWasSet) {
  const std::string config = folder("config");
  if (!support::ownMounts() || !mountSmallDisk(config, "size=256k")) GTEST_SKIP() << "no mounts";
  auto& defaults = clientcomm::UserDefaults::standardUserDefaults();
  defaults.setObject(clientcomm::PropertyListValue("kept"), "Before");
  ASSERT_TRUE(defaults.synchronize());
  std::ofstream fill(config + "/filler", std::ios::binary);
  while (fill.write("f", 1).flush()) {
  }
  const std::string large(32 << 10, 'v');
  defaults.setObject(clientcomm::PropertyListValue(large), "Large");
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(defaults.stringForKey("Large"), large);
  EXPECT_EQ(support::hostDefaults().at("Before").stringValue(), "kept");
  fs::remove(config + "/filler");
  fill.close();
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(support::hostDefaults().at("Before").stringValue(), "kept");
  EXPECT_EQ(support::hostDefaults().at("Large").stringValue(), large);
  EXPECT_EQ(std::distance(fs::directory_iterator(config + "/Preferences"), {}), 1);
}

TEST_F(Faults, DiskFullForTheRuntimeFolderIsMendedByItself) {
  const std::string runtime = folder("runtime");
  if (!support::ownMounts() || !mountSmallDisk(runtime, "nr_inodes=2")) GTEST_SKIP() << "no mounts";
  support::embedHelper("1.0");
  TQHPHelper::share();
  controller().autoRestartHelper();
  EXPECT_EQ(countInJournal(kStart), 0U);
  EXPECT_LE(support::processesOf(support::installedHelperPath()).size(), 1U);
  enlarge(runtime, "nr_inodes=1000");
  EXPECT_TRUE(isStartedOnceMore());
  EXPECT_NE(support::helperPid(), 0);
}

TEST_F(Faults, HostWithoutDescriptorsIsToldSoAndStartsTheHelperWhenItHasSome) {
  becomeUser();
  // The host's own: GLib ends a process that has no descriptor for it.
  g_main_context_default();
  // What the host is, it has asked for already: it is read once.
  EXPECT_EQ(clientcomm::Bundle::mainBundle().infoString("PID"), "P100");
  support::embedHelper("1.0");
  OSErr status = 0;
  {
    const LimitInForce none(RLIMIT_NOFILE, 0);
    TQHPHelper::share();
    status = controller().autoRestartHelper();
    TQHPHelper::share().regSuiteInfo();
    TQHPHelper::share().setTipsEnable(false);
  }
  EXPECT_EQ(status, 1);
  EXPECT_TRUE(isStartedOnceMore());
  EXPECT_EQ(support::hostDefaults().at("PID").stringValue(), "P100");
}

TEST_F(Faults, HostThatRunsOutOfDescriptorsInTheMidstGoesOnWithTheHelper) {
  becomeUser();
  support::embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  const int before = support::openDescriptorCount();
  // One more each time, so that every step fails for want of a descriptor once.
  for (rlim_t limit = 0; limit < static_cast<rlim_t>(before) + 12; ++limit) {
    const LimitInForce few(RLIMIT_NOFILE, limit);
    controller().autoRestartHelper();
    controller().clientIDFormHelper();
    controller().uploadLogByEmail("a", "b", "c", "d");
  }
  EXPECT_EQ(support::openDescriptorCount(), before);
  EXPECT_EQ(controller().autoRestartHelper(), 0);
  EXPECT_EQ(controller().clientIDFormHelper(), "client-" + std::to_string(support::helperPid()));
}

TEST_F(Faults, SystemWithoutFurtherProcessesIsStatusOneAndRecovers) {
  becomeUser();
  if (geteuid() == 0) GTEST_SKIP() << "root may always have one more process";
  support::embedHelper("1.0");
  {
    const LimitInForce none(RLIMIT_NPROC, 0);
    TQHPHelper::share();
    EXPECT_EQ(controller().autoRestartHelper(), 1);
  }
  EXPECT_EQ(support::processesOf(support::installedHelperPath()).size(), 0U);
  EXPECT_TRUE(isStartedOnceMore());
}

TEST_F(Faults, NoMemoryForTheProcessTableMakesNoSecondHelper) {
  support::embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  const pid_t helper = support::helperPid();
  const auto endless = [](const int*, unsigned, void*, std::size_t* length, const void*,
                          std::size_t) noexcept -> int {
    *length = std::numeric_limits<std::size_t>::max() / 2;
    return 0;
  };
  const auto before = clientcomm::replaceSysctl(endless);
  EXPECT_FALSE(TQHPProcessList::share().applicationIsRunning(
      OptionalString(support::helperIdentifier()), support::installedHelperPath()));
  EXPECT_TRUE(controller().launchHelepr());
  EXPECT_EQ(controller().autoRestartHelper(), 0);
  clientcomm::replaceSysctl(before);
  EXPECT_EQ(support::helperPid(), helper);
  EXPECT_EQ(countInJournal(" up "), 1U);
}

TEST_F(Faults, ReadOnlyInstallFolderIsStatusOneAndRecovers) {
  becomeUser();
  support::embedHelper("1.0");
  const std::string install = folder(support::kInstallFolder);
  fs::create_directory(install);
  fs::permissions(install, fs::perms::owner_read | fs::perms::owner_exec);
  TQHPHelper::share();
  EXPECT_EQ(controller().autoRestartHelper(), 1);
  EXPECT_TRUE(fs::is_empty(install));
  fs::permissions(install, fs::perms::owner_all);
  EXPECT_TRUE(isStartedOnceMore());
}

TEST_F(Faults, ReadOnlyConfigurationFolderLosesNoSettingAndNoService) {
  becomeUser();
  support::embedHelper("1.0");
  fs::permissions(folder("config"), fs::perms::owner_read | fs::perms::owner_exec);
  TQHPHelper::share();
  EXPECT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  EXPECT_TRUE(support::hostDefaults().empty());
  fs::permissions(folder("config"), fs::perms::owner_all);
  EXPECT_TRUE(clientcomm::UserDefaults::standardUserDefaults().synchronize());
  EXPECT_EQ(support::hostDefaults().at("PID").stringValue(), "P100");
  EXPECT_EQ(support::hostDefaults().at("FirstStartPID").stringValue(), "P100");
}

TEST_F(Faults, ReadOnlyRuntimeDirectoryIsMendedByItself) {
  becomeUser();
  support::embedHelper("1.0");
  fs::permissions(folder("runtime"), fs::perms::owner_read | fs::perms::owner_exec);
  TQHPHelper::share();
  controller().autoRestartHelper();
  EXPECT_EQ(countInJournal(kStart), 0U);
  fs::permissions(folder("runtime"), fs::perms::owner_all);
  EXPECT_TRUE(isStartedOnceMore());
}

// The helper of these tests never sends, so that nothing but its own care brings its endpoint back.
TEST_F(Faults, RuntimeFolderClearedAwayComesBackThoughTheHelperIsIdle) {
  support::embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  const pid_t helper = support::helperPid();
  fs::remove_all(clientcomm::runtimeFolderPath());
  EXPECT_TRUE(support::waitUntil(
      [] { return controller().autoRestartHelper() == 0 && controller().isAliveHelper() == 0; }));
  EXPECT_EQ(support::helperPid(), helper);
  EXPECT_EQ(countInJournal(" up "), 1U);
}

/// Whether the process has the kernel watch files for it.
bool isWatching(pid_t process) {
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd")) {
    std::error_code error;
    if (fs::read_symlink(entry, error) == "anon_inode:inotify") return true;
  }
  return false;
}

TEST_F(Faults, RuntimeFolderMovedAwayComesBackThoughTheHelperSleeps) {
  support::embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  const pid_t helper = support::helperPid();
  ASSERT_TRUE(support::waitUntil([&] { return isWatching(helper); }));
  fs::rename(clientcomm::runtimeFolderPath(), folder("moved"));
  EXPECT_TRUE(support::waitUntil(
      [] { return controller().autoRestartHelper() == 0 && controller().isAliveHelper() == 0; }));
  EXPECT_EQ(support::helperPid(), helper);
  EXPECT_EQ(countInJournal(" up "), 1U);
}

TEST_F(Faults, RuntimeFolderOfAnotherUserIsNotUsedAndMendedWhenItIsGone) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a folder away";
  fs::create_directory(clientcomm::runtimeFolderPath());
  const std::string go = folder("go");
  ChildProcess root = ChildProcess::fork([&] {
    if (!support::waitUntil([&] { return fs::exists(go); })) return 1;
    if (lchown(clientcomm::runtimeFolderPath().c_str(), 0, 0) != 0) return 2;
    return chmod(clientcomm::runtimeFolderPath().c_str(), 0777);
  });
  becomeUser();
  support::writeFile(go, "");
  ASSERT_EQ(root.wait(), 0);
  support::embedHelper("1.0");
  TQHPHelper::share();
  EXPECT_EQ(controller().autoRestartHelper(), 1);
  EXPECT_TRUE(fs::is_empty(clientcomm::runtimeFolderPath()));
  fs::remove(clientcomm::runtimeFolderPath());
  EXPECT_TRUE(isStartedOnceMore());
}

TEST_F(Faults, RuntimeFolderOpenToTheWorldIsClosedBeforeItIsUsed) {
  becomeUser();
  fs::create_directory(clientcomm::runtimeFolderPath());
  ASSERT_EQ(chmod(clientcomm::runtimeFolderPath().c_str(), 0777), 0);
  support::embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  struct stat status {};
  ASSERT_EQ(stat(clientcomm::runtimeFolderPath().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

/// Listens under the target's name in `elsewhere`. @return 0 when whoever connected said nothing.
int listenInPlaceOfHelper(const std::string& elsewhere) {
  const clientcomm::ScopedFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path =
      elsewhere + "/" + clientcomm::fileNameForIdentifier(support::helperIdentifier());
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 1;
  if (listen(listener.get(), 16) != 0 || chmod(path.c_str(), 0777) != 0) return 2;
  support::writeFile(elsewhere + "/ready", "");
  const clientcomm::ScopedFd peer(accept(listener.get(), nullptr, nullptr));
  char byte = 0;
  return recv(peer.get(), &byte, 1, 0) <= 0 ? 0 : 3;
}

TEST_F(Faults, RuntimeFolderSwappedForALinkLeadsNoEventToAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  const std::string elsewhere = folder("elsewhere");
  ChildProcess root = ChildProcess::fork([&] {
    if (!support::waitUntil([&] { return fs::exists(elsewhere); })) return 4;
    return listenInPlaceOfHelper(elsewhere);
  });
  becomeUser();
  support::embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  fs::create_directory(elsewhere);
  ASSERT_EQ(chmod(elsewhere.c_str(), 0777), 0);
  ASSERT_TRUE(support::waitUntil([&] { return fs::exists(elsewhere + "/ready"); }));
  fs::remove_all(clientcomm::runtimeFolderPath());
  fs::create_directory_symlink(elsewhere, clientcomm::runtimeFolderPath());
  EXPECT_EQ(TQHPHelperControl::share().show("secret", "1"), clientcomm::errAEEventNotPermitted);
  EXPECT_EQ(root.wait(), 0);
  fs::remove(clientcomm::runtimeFolderPath());
  EXPECT_TRUE(support::waitUntil([] { return controller().isAliveHelper() == 0; }));
}

// --- The preferences. ---

constexpr char kWriterRole[] = "stress-preferences-writer";

// Arguments: the writer's name, and how many keys to set, one write for each.
const support::Role writerRole(kWriterRole, [](const std::vector<std::string>& arguments) {
  auto& defaults = clientcomm::UserDefaults::standardUserDefaults();
  const int count = clientcomm::intValue(arguments.at(1));
  for (int i = 0; i < count; ++i) {
    const std::string key = arguments[0] + "-" + std::to_string(i);
    defaults.setObject(clientcomm::PropertyListValue(key), key);
    // One that could not be written for the others stays, and goes with the next.
    defaults.synchronize();
  }
  return support::waitUntil([&] { return defaults.synchronize(); }) ? 0 : 1;
});

TEST_F(Faults, PreferencesWrittenByEightProcessesAtOnceLoseNoKey) {
  constexpr int kWriters = 8;
  const int keys = stress::sizeFor(25, 200);
  const std::string application =
      support::makeApplication("Writer", "com.example.writer", kWriterRole);
  std::vector<ChildProcess> writers;
  for (int i = 0; i < kWriters; ++i) {
    writers.push_back(ChildProcess::spawn(
        {support::executableOf(application), "w" + std::to_string(i), std::to_string(keys)}));
  }
  // Whenever it is looked at, the file is whole.
  const std::string path = support::preferencesPath("com.example.writer");
  for (int look = 0; look < 200; ++look) {
    const bool isThere = fs::exists(path);
    EXPECT_TRUE(!isThere || clientcomm::dictionaryWithContentsOfFile(path).has_value());
    stress::pause(milliseconds(1));
  }
  for (ChildProcess& writer : writers) EXPECT_EQ(writer.wait(), 0);
  const auto settings = clientcomm::dictionaryWithContentsOfFile(path);
  ASSERT_TRUE(settings.has_value());
  EXPECT_EQ(settings->size(), static_cast<std::size_t>(kWriters * keys));
  EXPECT_EQ(std::distance(fs::directory_iterator(fs::path(path).parent_path()), {}), 1);
}

// --- The clock. ---

constexpr seconds kTenYears{10LL * 365 * 86400};

class ClockJumps : public Faults, public testing::WithParamInterface<seconds> {
 protected:
  void TearDown() override { stress::setWallClockOffset(seconds(0)); }
};

INSTANTIATE_TEST_SUITE_P(Stress, ClockJumps, testing::Values(kTenYears, -kTenYears),
                         [](const auto& test) {
                           return test.param > seconds(0) ? "Forward" : "Backward";
                         });

TEST_P(ClockJumps, HelperIsKeptRunningByTheTimerAsIfNothingHadHappened) {
  support::embedHelper("1.0");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return countInJournal(kStart) == 1; }));
  stress::setWallClockOffset(GetParam());
  killHelper();
  const auto time = stress::timeOf(
      [] { EXPECT_TRUE(support::runLoopUntil([] { return countInJournal(kStart) == 2; })); });
  EXPECT_LE(time, seconds(8));
}

TEST_P(ClockJumps, TimeOutOfAQueryIsNeitherLongerNorShorter) {
  ChildProcess target = support::runApplication(
      support::makeApplication("Target", "com.example.target", support::kEchoRole));
  ASSERT_TRUE(support::waitUntilReachable("com.example.target"));
  target.signal(SIGSTOP);
  stress::setWallClockOffset(GetParam());
  clientcomm::AppleEventDescriptor reply;
  const clientcomm::AppleEventDescriptor event = clientcomm::AppleEventDescriptor::appleEvent(
      clientcomm::kCallEventClass, clientcomm::kCallEventID,
      {clientcomm::typeApplicationBundleID, "com.example.target"}, -1, 0);
  const auto time = stress::timeOf([&] {
    EXPECT_EQ(clientcomm::AESendMessage(event, reply, clientcomm::kAEWaitReply, 30),
              clientcomm::errAETimeout);
  });
  EXPECT_GE(time, milliseconds(490));
  EXPECT_LE(time, milliseconds(1500));
  target.signal(SIGCONT);
}

TEST_P(ClockJumps, SettingsAndBundlesThatChangeAreSeenToChange) {
  auto& defaults = clientcomm::UserDefaults::standardUserDefaults();
  const std::string other = "com.example.other";
  support::writeFile(support::preferencesPath(other),
                     clientcomm::xmlPropertyList({{"Closed", false}}));
  EXPECT_FALSE(defaults.persistentDomainForName(other)->at("Closed").boolValue());
  const std::string application =
      support::makeApplication("Target", "com.example.first", support::kEchoRole);
  const std::string info = application + "/Contents/Info.plist";
  ChildProcess target = support::runApplication(application);
  ASSERT_TRUE(support::waitUntilReachable("com.example.first"));
  auto& processes = TQHPProcessList::share();
  EXPECT_EQ(processes.infoForPID(target.pid())->at("CFBundleIdentifier").stringValue(),
            "com.example.first");
  stress::setWallClockOffset(GetParam());
  for (int i = 0; i < 5; ++i) {
    const bool isClosed = i % 2 == 0;
    const std::string identifier =
        "com.example." + std::string(static_cast<std::size_t>(i + 1), 'x');
    support::writeFile(
        support::preferencesPath(other),
        clientcomm::xmlPropertyList(
            {{"Closed", isClosed}, {"Round", std::string(static_cast<std::size_t>(i), 'r')}}));
    EXPECT_EQ(defaults.persistentDomainForName(other)->at("Closed").boolValue(), isClosed);
    support::writeFile(info, clientcomm::xmlPropertyList({{"CFBundleIdentifier", identifier}}));
    EXPECT_EQ(processes.infoForPID(target.pid())->at("CFBundleIdentifier").stringValue(),
              identifier);
  }
}

}  // namespace
