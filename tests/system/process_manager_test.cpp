#include "ClientComm/platform/process_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::GetProcessForPID;
using clientcomm::kProcessDictionaryIncludeAllInformationMask;
using clientcomm::noErr;
using clientcomm::ProcessInformationCopyDictionary;
using clientcomm::ProcessSerialNumber;
using clientcomm::procNotFound;
using clientcomm::PropertyListDictionary;
using clientcomm::ScopedFd;
using clientcomm::serialNumberForPeer;
using support::ChildProcess;

constexpr pid_t kNoProcess = 99'999'999;  // more than the kernel ever gives

int waitForEnd(const std::vector<std::string>& arguments) {
  if (arguments.empty() || arguments[0] != "unrecorded") clientcomm::recordOwnProcess().ignore();
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  return 0;
}
const support::Role waiter("waiter", waitForEnd);

/// What the process manager says of a process, nil for what it does not say.
struct Known {
  clientcomm::OptionalString identifier;
  clientcomm::OptionalString path;
  clientcomm::OptionalString name;
  bool operator==(const Known&) const = default;
};

void PrintTo(const Known& known, std::ostream* out) {
  for (const auto& text : {known.identifier, known.path, known.name}) {
    *out << text.value_or("(nil)") << "; ";
  }
}

std::optional<Known> knownOf(const ProcessSerialNumber& psn) {
  const auto dictionary =
      ProcessInformationCopyDictionary(psn, kProcessDictionaryIncludeAllInformationMask);
  if (!dictionary) return std::nullopt;
  const auto text = [&](const char* key) {
    const auto entry = dictionary->find(key);
    return entry != dictionary->end() ? entry->second.stringValue() : std::nullopt;
  };
  return Known{text("CFBundleIdentifier"), text("BundlePath"), text("CFBundleName")};
}

std::optional<Known> knownOf(pid_t pid) {
  ProcessSerialNumber psn;
  if (GetProcessForPID(pid, psn) != noErr) return std::nullopt;
  return knownOf(psn);
}

std::string makeWaiter(const std::string& name = "Waiter",
                       const std::string& identifier = "com.example.waiter") {
  return support::makeApplication(name, identifier, "waiter");
}

ChildProcess start(const std::string& application, const std::vector<std::string>& arguments = {}) {
  ChildProcess process = support::runApplication(application, arguments);
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

// Runs a program that is no application.
ChildProcess startTool(const std::string& executable = "/bin/cat") {
  ChildProcess process = ChildProcess::spawn({executable});
  process.write("ready\n");
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

// Runs a copy of a plain program from the path `executable`, however it looks.
ChildProcess runProgramAt(const std::string& executable) {
  fs::create_directories(fs::path(executable).parent_path());
  fs::copy_file("/bin/cat", executable);
  return startTool(executable);
}

void writeInfo(const std::string& application, const std::string& identifier,
               const std::string& name, const std::string& executable = "") {
  PropertyListDictionary info{{"CFBundleIdentifier", identifier}, {"CFBundleName", name}};
  if (!executable.empty()) info["CFBundleExecutable"] = executable;
  support::writeFile(application + "/Contents/Info.plist", clientcomm::xmlPropertyList(info));
}

TEST(ProcessManager, KnowsAnApplicationByItsBundle) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(ProcessManager, KnowsThisVeryProcess) {
  EXPECT_EQ(knownOf(getpid()),
            (Known{"com.example.testhost", support::hostBundlePath(), "Test Host"}));
}

TEST(ProcessManager, TheSerialNumberHoldsTheProcessIDAndLastsAsLongAsTheProcess) {
  ChildProcess process = start(makeWaiter());
  ProcessSerialNumber first;
  ProcessSerialNumber second;
  ASSERT_EQ(GetProcessForPID(process.pid(), first), noErr);
  ASSERT_EQ(GetProcessForPID(process.pid(), second), noErr);
  EXPECT_EQ(first, second);
  EXPECT_EQ(first.lowLongOfPSN, static_cast<std::uint32_t>(process.pid()));
  process.signal(SIGKILL);
  process.wait();
  EXPECT_EQ(GetProcessForPID(process.pid(), second), procNotFound);
  EXPECT_FALSE(knownOf(first));
}

TEST(ProcessManager, ASerialNumberOfAnEarlierProcessOfTheSameIDIsUnknown) {
  const ChildProcess process = start(makeWaiter());
  ProcessSerialNumber psn;
  ASSERT_EQ(GetProcessForPID(process.pid(), psn), noErr);
  --psn.highLongOfPSN;
  EXPECT_FALSE(knownOf(psn));
}

TEST(ProcessManager, DoesNotKnowProgramsDaemonsOrKernelThreads) {
  ProcessSerialNumber psn = {1, 2};
  const ChildProcess tool = startTool();
  for (const pid_t pid : {tool.pid(), 2, 0, -1, kNoProcess}) {
    EXPECT_EQ(GetProcessForPID(pid, psn), procNotFound) << pid;
  }
  EXPECT_EQ(psn, (ProcessSerialNumber{1, 2}));
  EXPECT_FALSE(knownOf(ProcessSerialNumber{0, static_cast<std::uint32_t>(tool.pid())}));
  EXPECT_FALSE(knownOf(ProcessSerialNumber{}));
}

TEST(ProcessManager, DoesNotKnowAProcessThatHasEndedButIsNotReapedYet) {
  ChildProcess process = start(makeWaiter());
  process.signal(SIGKILL);
  siginfo_t ended = {};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process.pid()), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_FALSE(knownOf(process.pid()));
}

TEST(ProcessManager, TakesTheOtherPlatformsExecutableFolderToo) {
  const std::string application = support::sandbox() + "/Other.app";
  writeInfo(application, "com.example.other", "Other");
  const ChildProcess process = runProgramAt(application + "/Contents/MacOS/Other");
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.other", application, "Other"}));
}

TEST(ProcessManager, TakesTheInnermostBundle) {
  const std::string outer = support::sandbox() + "/Outer.app";
  const std::string inner = outer + "/Contents/Linux/Inner.app";
  writeInfo(outer, "com.example.outer", "Outer");
  writeInfo(inner, "com.example.inner", "Inner");
  const ChildProcess process = runProgramAt(inner + "/Contents/Linux/Inner");
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.inner", inner, "Inner"}));
}

TEST(ProcessManager, AnExecutableElsewhereThanInABundlesExecutableFolderIsNoApplication) {
  const std::string bundle = support::sandbox() + "/Almost.app";
  writeInfo(bundle, "com.example.almost", "Almost");
  for (const std::string& executable :
       {bundle + "/Almost", bundle + "/Contents/Almost", bundle + "/Contents/Resources/Almost",
        bundle + "/Contents/Linux/deeper/Almost", bundle + "/Contents/linux/Almost",
        bundle + "/Contents/NotLinux/Almost", support::sandbox() + "/A.APP/Contents/Linux/A",
        support::sandbox() + "/A.bundle/Contents/Linux/A",
        support::sandbox() + "/.app/Contents/Linux/A"}) {
    const ChildProcess process = runProgramAt(executable);
    EXPECT_FALSE(knownOf(process.pid())) << executable;
  }
}

TEST(ProcessManager, LeavesOutWhatTheInfoDictionaryDoesNotSay) {
  const std::string application = support::sandbox() + "/Silent.app";
  support::writeFile(application + "/Contents/Info.plist",
                     clientcomm::xmlPropertyList({{"CFBundleIdentifier", 7}}));
  const ChildProcess process = runProgramAt(application + "/Contents/Linux/Silent");
  EXPECT_EQ(knownOf(process.pid()), (Known{std::nullopt, application, std::nullopt}));
}

TEST(ProcessManager, PathsOfAnyBytesAreGivenAsTheyStand) {
  const std::string application = support::sandbox() + "/a\xFF \n(deleted)/\xC3.app";
  writeInfo(application, "com.example.bytes", "Bytes", "x (deleted) y");
  const ChildProcess process = runProgramAt(application + "/Contents/Linux/x (deleted) y");
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.bytes", application, "Bytes"}));
}

TEST(ProcessManager, FollowsTheBundleThatIsMoved) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  const std::string moved = support::sandbox() + "/apps/Moved.app";
  fs::rename(application, moved);
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.waiter", moved, "Waiter"}));
}

TEST(ProcessManager, OnlyAllInformationCanBeAskedFor) {
  ProcessSerialNumber psn;
  ASSERT_EQ(GetProcessForPID(getpid(), psn), noErr);
  EXPECT_FALSE(ProcessInformationCopyDictionary(psn, 0));
  EXPECT_FALSE(ProcessInformationCopyDictionary(psn, 1));
}

TEST(ProcessManager, SeesAnInfoDictionaryThatWasRewrittenInPlaceAtOnce) {
  const std::string application = support::sandbox() + "/Changing.app";
  writeInfo(application, "com.example.number0", "Changing");
  const ChildProcess process = runProgramAt(application + "/Contents/Linux/Changing");
  for (char digit = '0'; digit <= '9'; ++digit) {
    const std::string identifier = std::string("com.example.number") + digit;
    writeInfo(application, identifier, "Changing");
    EXPECT_EQ(knownOf(process.pid()), (Known{identifier, application, "Changing"}));
  }
}

TEST(ProcessManager, DoesNotWaitForAnInfoDictionaryThatIsAPipe) {
  const std::string application = support::sandbox() + "/Pipe.app";
  const ChildProcess process = runProgramAt(application + "/Contents/Linux/Pipe");
  ASSERT_EQ(mkfifo((application + "/Contents/Info.plist").c_str(), 0600), 0);
  EXPECT_EQ(knownOf(process.pid()), (Known{std::nullopt, application, std::nullopt}));
}

// --- An application whose bundle is removed or replaced while it runs. ---

TEST(ProcessManagerRemovedBundle, IsStillKnownUnderItsIdentifierAndOldPath) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  fs::remove_all(application);
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(ProcessManagerRemovedBundle, IsStillKnownInTheMiddleOfTheRemoval) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  fs::remove(application + "/Contents/Info.plist");
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(ProcessManagerRemovedBundle, KeepsItsSerialNumber) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  ProcessSerialNumber before;
  ASSERT_EQ(GetProcessForPID(process.pid(), before), noErr);
  fs::remove_all(application);
  ProcessSerialNumber after;
  ASSERT_EQ(GetProcessForPID(process.pid(), after), noErr);
  EXPECT_EQ(before, after);
  EXPECT_EQ(knownOf(before), knownOf(after));
}

TEST(ProcessManagerRemovedBundle, OneThatAnotherReplacedKeepsItsIdentityAndTheNewOneHasItsOwn) {
  const std::string application = makeWaiter("Waiter", "com.example.old");
  const ChildProcess old = start(application);
  fs::remove_all(application);
  makeWaiter("Waiter", "com.example.new");
  const ChildProcess fresh = start(application);
  EXPECT_EQ(knownOf(old.pid()), (Known{"com.example.old", application, "Waiter"}));
  EXPECT_EQ(knownOf(fresh.pid()), (Known{"com.example.new", application, "Waiter"}));
}

TEST(ProcessManagerRemovedBundle, WithoutARecordItsPathIsStillKnown) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application, {"unrecorded"});
  fs::remove_all(application);
  EXPECT_EQ(knownOf(process.pid()), (Known{std::nullopt, application, std::nullopt}));
}

TEST(ProcessManagerRemovedBundle, WithoutARecordItTakesTheIdentityOfItsReplacement) {
  const std::string application = makeWaiter("Waiter", "com.example.old");
  const ChildProcess process = start(application, {"unrecorded"});
  fs::remove_all(application);
  makeWaiter("Waiter", "com.example.new");
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.new", application, "Waiter"}));
}

TEST(ProcessManagerRemovedBundle, OnlyTheExecutableGoneCountsTheSame) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  fs::remove(support::executableOf(application));
  writeInfo(application, "com.example.other", "Other");
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
}

void forgeRecord(pid_t pid) {
  support::writeFile(
      support::sandbox() + "/runtime/ClientComm/process." + std::to_string(pid),
      clientcomm::xmlPropertyList({{"StartTime", clientcomm::processStartTime(pid).value()},
                                   {"CFBundleIdentifier", "com.example.forged"},
                                   {"BundlePath", "/forged/Forged.app"},
                                   {"CFBundleName", "Forged"}}));
}

TEST(ProcessManager, NeverBelievesARecordWhereTheBundleStands) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application, {"unrecorded"});
  forgeRecord(process.pid());
  ASSERT_TRUE(clientcomm::processRecordForPID(process.pid()));
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(ProcessManager, NeverBelievesARecordOfAProcessOutsideAnyBundle) {
  const ChildProcess tool = startTool();
  forgeRecord(tool.pid());
  ASSERT_TRUE(clientcomm::processRecordForPID(tool.pid()));
  EXPECT_FALSE(knownOf(tool.pid()));
}

TEST(ProcessManager, AnExecutableThatIsItselfCalledDeletedIsNotTakenForRemoved) {
  const std::string application = support::sandbox() + "/Odd.app";
  writeInfo(application, "com.example.odd", "Odd", "Odd (deleted)");
  const ChildProcess process = runProgramAt(application + "/Contents/Linux/Odd (deleted)");
  forgeRecord(process.pid());
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.odd", application, "Odd"}));
}

TEST(ProcessManager, AFileThatIsCalledLikeARemovedExecutableDoesNotHideTheRemoval) {
  const std::string application = support::sandbox() + "/Odd.app";
  const std::string executable = application + "/Contents/Linux/Odd";
  writeInfo(application, "com.example.odd", "Odd");
  const ChildProcess process = runProgramAt(executable);
  forgeRecord(process.pid());
  fs::remove(executable);
  support::writeFile(executable + " (deleted)", "another file");
  EXPECT_EQ(knownOf(process.pid()), (Known{"com.example.forged", "/forged/Forged.app", "Forged"}));
}

// --- The process at the other end of a connection. ---

ScopedFd openFile(const std::string& path) {
  ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(file.isValid()) << path;
  return file;
}

ScopedFd openExecutableOf(const std::string& application) {
  return openFile(support::executableOf(application));
}

std::optional<Known> knownPeer(pid_t pid, int executable = -1) {
  const auto psn = serialNumberForPeer(pid, executable);
  return psn ? knownOf(*psn) : std::nullopt;
}

TEST(OpenApplications, AreThoseThatHaveRecordedThemselves) {
  const ChildProcess open = start(makeWaiter());
  const ChildProcess unrecorded = start(makeWaiter("Other"), {"unrecorded"});
  const std::vector<std::int32_t> pids = clientcomm::openApplications();
  EXPECT_EQ(std::ranges::count(pids, open.pid()), 1);
  EXPECT_EQ(std::ranges::count(pids, unrecorded.pid()), 0);
}

TEST(PeerIdentity, IsWhatTheProcessRuns) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  EXPECT_EQ(knownPeer(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(PeerIdentity, SerialNumberHoldsTheProcessIDAndStaysTheSame) {
  const ChildProcess process = start(makeWaiter());
  const auto psn = serialNumberForPeer(process.pid(), -1);
  ASSERT_TRUE(psn);
  EXPECT_EQ(psn->lowLongOfPSN, static_cast<std::uint32_t>(process.pid()));
  EXPECT_EQ(serialNumberForPeer(process.pid(), -1), psn);
}

TEST(PeerIdentity, SerialNumberIsNotTakenForThatOfARunningProcess) {
  ProcessSerialNumber running;
  ASSERT_EQ(GetProcessForPID(getpid(), running), noErr);
  const auto peer = serialNumberForPeer(getpid(), -1);
  ASSERT_TRUE(peer);
  EXPECT_NE(peer->highLongOfPSN & 0x80000000U, running.highLongOfPSN & 0x80000000U);
}

TEST(PeerIdentity, IsStillKnownWhenTheProcessHasEnded) {
  const std::string application = makeWaiter();
  ChildProcess process = start(application);
  const auto psn = serialNumberForPeer(process.pid(), -1);
  process.signal(SIGKILL);
  process.wait();
  ASSERT_TRUE(psn);
  EXPECT_EQ(knownOf(*psn), (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(PeerIdentity, OfAProcessThatHasEndedIsTheExecutableItHandedOver) {
  ChildProcess process = ChildProcess::fork([] { return 0; });
  process.wait();
  const ScopedFd executable = openFile("/proc/self/exe");
  EXPECT_EQ(knownPeer(process.pid(), executable.get()),
            (Known{"com.example.testhost", support::hostBundlePath(), "Test Host"}));
}

TEST(PeerIdentity, OfAProcessThatIsNotReapedYetIsTheExecutableItHandedOver) {
  const std::string application = makeWaiter();
  ChildProcess process = start(application);
  const ScopedFd executable = openFile("/proc/" + std::to_string(process.pid()) + "/exe");
  process.signal(SIGKILL);
  siginfo_t ended = {};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process.pid()), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(knownPeer(process.pid(), executable.get()),
            (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(PeerIdentity, OfAProcessThatHasEndedWithoutHandingItsExecutableOverIsNothing) {
  EXPECT_FALSE(serialNumberForPeer(kNoProcess, -1));
}

TEST(PeerIdentity, OfALiveProcessIsNeverTheExecutableItHandsOver) {
  const std::string application = makeWaiter();
  const ScopedFd executable = openExecutableOf(application);
  const ChildProcess tool = startTool();
  EXPECT_FALSE(serialNumberForPeer(tool.pid(), executable.get()));
  EXPECT_EQ(knownPeer(getpid(), executable.get()),
            (Known{"com.example.testhost", support::hostBundlePath(), "Test Host"}));
}

TEST(PeerIdentity, OfAProcessThatMayNotBeLookedAtIsTheExecutableItHandsOver) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
  const ScopedFd executable = openExecutableOf(makeWaiter());
  const pid_t parent = getpid();
  ChildProcess other = ChildProcess::fork([&] {
    if (setuid(12345) != 0) return 2;
    if (serialNumberForPeer(parent, -1)) return 3;
    return serialNumberForPeer(parent, executable.get()) ? 0 : 1;
  });
  EXPECT_EQ(other.wait(), 0);
}

TEST(PeerIdentity, OnlyAPlainFileInABundleIsTakenForAnExecutable) {
  const std::string folder = support::sandbox() + "/Folder.app/Contents/Linux/folder";
  fs::create_directories(folder);
  const std::string pipePath = support::sandbox() + "/Folder.app/Contents/Linux/pipe";
  ASSERT_EQ(mkfifo(pipePath.c_str(), 0600), 0);
  const ScopedFd namedPipe(open(pipePath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  int channel[2];
  ASSERT_EQ(pipe(channel), 0);
  const ScopedFd directory = openFile(folder);
  const ScopedFd tool = openFile("/bin/cat");
  for (const int descriptor :
       {directory.get(), namedPipe.get(), channel[0], tool.get(), 12'345'678}) {
    EXPECT_FALSE(serialNumberForPeer(kNoProcess, descriptor)) << descriptor;
  }
  close(channel[0]);
  close(channel[1]);
}

TEST(PeerIdentity, OfARemovedBundleIsWhatTheProcessRecorded) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  fs::remove_all(application);
  EXPECT_EQ(knownPeer(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(PeerIdentity, OfARemovedBundleIsWhatWasKnownOfTheProcessBefore) {
  const std::string application = makeWaiter();
  ChildProcess process = start(application, {"unrecorded"});
  const ScopedFd executable = openExecutableOf(application);
  ASSERT_TRUE(serialNumberForPeer(process.pid(), -1));
  fs::remove_all(application);
  makeWaiter("Waiter", "com.example.successor");
  EXPECT_EQ(knownPeer(process.pid()), (Known{"com.example.waiter", application, "Waiter"}));
  process.signal(SIGKILL);
  process.wait();
  EXPECT_EQ(knownPeer(process.pid(), executable.get()),
            (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(PeerIdentity, OfAnExecutableRemovedSinceIsTheBundleThatStandsThere) {
  const std::string application = makeWaiter();
  const ScopedFd executable = openExecutableOf(application);
  fs::remove(support::executableOf(application));
  EXPECT_EQ(knownPeer(kNoProcess, executable.get()),
            (Known{"com.example.waiter", application, "Waiter"}));
}

TEST(PeerIdentity, FollowsAChangeOfTheBundleWithinAboutASecond) {
  const std::string application = makeWaiter("Waiter", "com.example.before");
  const ChildProcess process = start(application);
  ASSERT_EQ(knownPeer(process.pid())->identifier, "com.example.before");
  writeInfo(application, "com.example.after", "Waiter");
  EXPECT_TRUE(support::waitUntil(
      [&] { return knownPeer(process.pid())->identifier == "com.example.after"; },
      std::chrono::seconds(5)));
}

TEST(PeerIdentity, ASerialNumberThatWasNeverGivenIsUnknown) {
  const auto psn = serialNumberForPeer(getpid(), -1);
  ASSERT_TRUE(psn);
  EXPECT_FALSE(knownOf(ProcessSerialNumber{psn->highLongOfPSN + 1, psn->lowLongOfPSN}));
  EXPECT_FALSE(knownOf(ProcessSerialNumber{psn->highLongOfPSN, psn->lowLongOfPSN + 1}));
  EXPECT_FALSE(knownOf(ProcessSerialNumber{psn->highLongOfPSN + 256, psn->lowLongOfPSN}));
}

TEST(PeerIdentity, AskingLeavesNoDescriptorOpen) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  const ScopedFd executable = openExecutableOf(application);
  const int before = support::openDescriptorCount();
  knownPeer(process.pid(), executable.get());
  knownPeer(kNoProcess, executable.get());
  knownOf(process.pid());
  EXPECT_EQ(support::openDescriptorCount(), before);
}

}  // namespace
