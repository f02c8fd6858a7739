#include "ClientComm/platform/workspace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/process_manager.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::ScopedFd;
using clientcomm::Workspace;
using support::ChildProcess;

// An identifier of this test alone: tests run side by side, and an application that runs counts for
// all of this user's.
std::string identifier() {
  return "com.example.witness." + fs::path(support::sandbox()).filename().string();
}

std::string witnessFolder() { return support::sandbox() + "/witnesses"; }

std::string statusField(const std::string& name, const std::string& process = "self") {
  std::ifstream status("/proc/" + process + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  }
  return "(none)";
}

std::string ownDescriptors() {
  std::map<int, std::string> targets;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string target = fs::read_symlink(entry.path(), error);
    // The listing's own descriptor is one of the directory itself.
    if (!target.ends_with("/fd")) targets[std::stoi(entry.path().filename())] = target;
  }
  std::ostringstream text;
  for (const auto& [descriptor, target] : targets) text << descriptor << "=" << target << " ";
  return text.str();
}

// Writes down what it finds itself to be, and waits for its end.
int runWitness(const std::vector<std::string>& arguments) {
  const pid_t parent = getppid();
  const std::string descriptors = ownDescriptors();
  std::ostringstream text;
  text << "descriptors: " << descriptors << "\nsession: " << getsid(0) << "\nparent: " << parent
       << "\narguments: " << arguments.size() << "\nfolder: " << fs::current_path().string()
       << "\nvariable: " << (std::getenv("WITNESS") != nullptr ? std::getenv("WITNESS") : "")
       << "\nblocked: " << statusField("SigBlk") << "\nignored: " << statusField("SigIgn") << "\n";
  clientcomm::recordOwnProcess().ignore();
  const std::string path = witnessFolder() + "/" + std::to_string(getpid());
  support::writeFile(path + ".new", text.str());
  fs::rename(path + ".new", path);
  for (;;) pause();
}
const support::Role witness("witness", runWitness);

int runWitnessOfAnotherUser(const std::vector<std::string>& arguments) {
  if (setuid(12345) != 0) return 1;
  std::puts("ready");
  std::fflush(stdout);
  for (;;) pause();
  return static_cast<int>(arguments.size());
}
const support::Role otherUser("other-user", runWitnessOfAnotherUser);

std::string makeWitness(const std::string& folder = "apps") {
  return support::makeApplication("Witness", identifier(), "witness", {}, folder);
}

bool openApplication(const std::string& application) {
  return Workspace::sharedWorkspace().openFile(application).isOk();
}

// Whether the process runs an executable in the sandbox's bundle called `name`.app.
bool runsBundle(const fs::path& process, const std::string& name) {
  std::error_code error;
  const std::string link = fs::read_symlink(process / "exe", error);
  return link.starts_with(support::sandbox()) &&
         link.find("/" + name + ".app/") != std::string::npos;
}

std::vector<pid_t> processesOf(const std::string& name = "Witness") {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t pid = std::atoi(entry.path().filename().c_str());
    if (pid > 0 && runsBundle(entry.path(), name)) found.push_back(pid);
  }
  return found;
}

/// What the one witness that runs has written down.
class Testimony {
 public:
  Testimony() {
    const auto all = processesOf();
    EXPECT_EQ(all.size(), 1U);
    if (all.size() != 1) return;
    pid_ = all.front();
    const std::string path = witnessFolder() + "/" + std::to_string(pid_);
    EXPECT_TRUE(support::waitUntil([&] { return fs::exists(path); }));
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
      const auto colon = line.find(": ");
      if (colon != std::string::npos) lines_[line.substr(0, colon)] = line.substr(colon + 2);
    }
  }
  /// 0 when there is not exactly one witness.
  pid_t pid() const { return pid_; }
  /// Ends the witness. To the system, ending process 0 would be ending all of the test's group.
  void end() const {
    if (pid_ > 0) kill(pid_, SIGKILL);
    EXPECT_TRUE(support::waitUntil([] { return processesOf().empty(); }));
  }
  std::string operator[](const std::string& key) const {
    const auto line = lines_.find(key);
    return line != lines_.end() ? line->second : "(nothing)";
  }

 private:
  pid_t pid_ = 0;
  std::map<std::string, std::string> lines_;
};

constexpr char kNullDeviceOnly[] = "0=/dev/null 1=/dev/null 2=/dev/null ";

bool hasNoChild() {
  siginfo_t child = {};
  return waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT | __WALL) < 0 && errno == ECHILD;
}

// --- The launched process. ---

TEST(WorkspaceLaunch, RunsWhenTheCallReturns) {
  const std::string application = makeWitness();
  EXPECT_TRUE(openApplication(application));
  ASSERT_EQ(processesOf().size(), 1U);
  clientcomm::ProcessSerialNumber psn;
  EXPECT_EQ(clientcomm::GetProcessForPID(processesOf().front(), psn), clientcomm::noErr);
}

TEST(WorkspaceLaunch, HoldsNoneOfTheHostsDescriptors) {
  int channel[2];
  ASSERT_EQ(pipe2(channel, O_NONBLOCK), 0);
  const ScopedFd file(::open("/bin/cat", O_RDONLY));
  ASSERT_EQ(dup2(file.get(), 200), 200);
  ASSERT_TRUE(openApplication(makeWitness()));
  EXPECT_EQ(Testimony()["descriptors"], kNullDeviceOnly);
  // A host in a pipeline can end: nobody else holds its end of the pipe.
  close(channel[1]);
  char byte = 0;
  EXPECT_TRUE(support::waitUntil([&] { return read(channel[0], &byte, 1) == 0; }));
  close(channel[0]);
  close(200);
}

TEST(WorkspaceLaunch, HasASessionOfItsOwn) {
  ASSERT_TRUE(openApplication(makeWitness()));
  const Testimony testimony;
  EXPECT_NE(testimony["session"], std::to_string(getsid(0)));
  EXPECT_NE(getpgid(testimony.pid()), getpgid(0));
}

TEST(WorkspaceLaunch, IsNoChildOfTheHostAndLeavesNone) {
  ASSERT_TRUE(openApplication(makeWitness()));
  EXPECT_TRUE(hasNoChild());
  const Testimony testimony;
  std::ifstream stat("/proc/" + std::to_string(testimony.pid()) + "/stat");
  std::string text(std::istreambuf_iterator<char>(stat), {});
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  char state = 0;
  pid_t parent = 0;
  fields >> state >> parent;
  EXPECT_NE(parent, getpid());
  // It never had another parent that could still end.
  EXPECT_EQ(testimony["parent"], std::to_string(parent));
}

TEST(WorkspaceLaunch, OutlivesTheHost) {
  const std::string application = makeWitness();
  ChildProcess host = ChildProcess::fork([&] { return openApplication(application) ? 0 : 1; });
  EXPECT_EQ(host.wait(), 0);
  const Testimony testimony;
  ASSERT_GT(testimony.pid(), 0);
  EXPECT_EQ(kill(testimony.pid(), 0), 0);
}

TEST(WorkspaceLaunch, StartsInTheRootFolderWithItsPathAloneAndTheHostsEnvironment) {
  setenv("WITNESS", "seen", 1);
  ASSERT_TRUE(openApplication(makeWitness()));
  const Testimony testimony;
  EXPECT_EQ(testimony["folder"], "/");
  EXPECT_EQ(testimony["arguments"], "0");
  EXPECT_EQ(testimony["variable"], "seen");
  std::string path = support::readFile("/proc/" + std::to_string(testimony.pid()) + "/cmdline");
  EXPECT_EQ(path, support::executableOf(support::sandbox() + "/apps/Witness.app") + '\0');
}

TEST(WorkspaceLaunch, DoesNotInheritWhatBelongsToTheHostsPackaging) {
  setenv("LD_LIBRARY_PATH", "/host/lib", 1);
  setenv("LD_PRELOAD", "", 1);
  setenv("APPDIR", "/host/image", 1);
  setenv("PATH", "/host/image/bin:/usr/bin:/bin", 1);
  setenv("QT_PLUGIN_PATH", "/host/image/plugins", 1);
  setenv("DISPLAY", ":7", 1);
  ASSERT_TRUE(openApplication(makeWitness()));
  const Testimony testimony;
  const std::string environment =
      '\0' + support::readFile("/proc/" + std::to_string(testimony.pid()) + "/environ");
  const auto has = [&environment](const std::string& text) {
    return environment.find('\0' + text) != std::string::npos;
  };
  EXPECT_FALSE(has("LD_LIBRARY_PATH="));
  EXPECT_FALSE(has("LD_PRELOAD="));
  EXPECT_FALSE(has("APPDIR="));
  EXPECT_FALSE(has("QT_PLUGIN_PATH="));
  EXPECT_EQ(environment.find("/host/"), std::string::npos);
  EXPECT_TRUE(has(std::string("PATH=/usr/bin:/bin") + '\0'));
  EXPECT_TRUE(has(std::string("DISPLAY=:7") + '\0'));
  EXPECT_STREQ(getenv("LD_LIBRARY_PATH"), "/host/lib") << "the host keeps its own";
}

TEST(WorkspaceLaunch, InheritsNoIgnoredAndNoBlockedSignals) {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  signal(SIGRTMIN + 3, SIG_IGN);
  sigset_t some;
  sigemptyset(&some);
  sigaddset(&some, SIGTERM);
  sigaddset(&some, SIGCHLD);
  sigprocmask(SIG_BLOCK, &some, nullptr);
  ASSERT_TRUE(openApplication(makeWitness()));
  const Testimony testimony;
  EXPECT_EQ(testimony["blocked"], "0000000000000000");
  EXPECT_EQ(testimony["ignored"], "0000000000000000");
}

TEST(WorkspaceLaunch, LeavesTheHostsSignalsFolderAndDescriptorsAsTheyWere) {
  const std::string application = makeWitness();
  const int descriptors = support::openDescriptorCount();
  const std::string blocked = statusField("SigBlk");
  const std::string ignored = statusField("SigIgn");
  const fs::path folder = fs::current_path();
  ASSERT_TRUE(openApplication(application));
  EXPECT_EQ(support::openDescriptorCount(), descriptors);
  EXPECT_EQ(statusField("SigBlk"), blocked);
  EXPECT_EQ(statusField("SigIgn"), ignored);
  EXPECT_EQ(fs::current_path(), folder);
  EXPECT_EQ(support::threadCount(), 1);
}

TEST(WorkspaceLaunch, TakesARelativePath) {
  makeWitness();
  fs::current_path(support::sandbox());
  EXPECT_TRUE(openApplication("apps/Witness.app"));
  EXPECT_EQ(Testimony()["folder"], "/");
}

// --- Hosts that are not like others. Each is a forked copy, so that nothing else is disturbed. ---

void expectLaunchFromHost(const std::function<void()>& prepare) {
  const std::string application = makeWitness();
  ChildProcess host = ChildProcess::fork([&] {
    prepare();
    return openApplication(application) ? 0 : 1;
  });
  EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(Testimony()["descriptors"], kNullDeviceOnly);
}

TEST(WorkspaceHost, MayHaveClosedItsStandardStreams) {
  expectLaunchFromHost([] {
    for (const int stream : {0, 1, 2}) close(stream);
  });
}

TEST(WorkspaceHost, MayHaveClosedOneStandardStream) {
  expectLaunchFromHost([] { close(1); });
}

TEST(WorkspaceHost, MayIgnoreTheEndOfItsChildren) {
  expectLaunchFromHost([] { signal(SIGCHLD, SIG_IGN); });
}

TEST(WorkspaceHost, MayReapEveryChildItself) {
  expectLaunchFromHost([] {
    signal(SIGCHLD, [](int) {
      const int error = errno;
      while (waitpid(-1, nullptr, WNOHANG) > 0) {
      }
      errno = error;
    });
  });
}

TEST(WorkspaceHost, MayBeInterruptedBySignalsAllTheTime) {
  expectLaunchFromHost([] {
    struct sigaction counting = {};
    counting.sa_handler = [](int) {};
    sigaction(SIGALRM, &counting, nullptr);
    const itimerval often = {{0, 200}, {0, 200}};
    setitimer(ITIMER_REAL, &often, nullptr);
  });
}

TEST(WorkspaceHost, MayHaveThreadsThatForkChildrenMeanwhile) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer's own locks may be held by a thread that the forked copy lacks";
#endif
  // Such a child holds copies of all that was open at its fork, for as long as it lives.
  const std::string application = makeWitness();
  std::vector<pid_t> children;
  std::atomic<bool> isDone = false;
  std::thread forking([&] {
    while (!isDone && children.size() < 500) {
      const pid_t child = fork();
      if (child == 0) {
        for (;;) pause();
      }
      if (child > 0) children.push_back(child);
    }
  });
  EXPECT_TRUE(openApplication(application));
  isDone = true;
  forking.join();
  for (const pid_t child : children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  EXPECT_EQ(processesOf().size(), 1U);
}

TEST(WorkspaceHost, MayBeWhereDescriptorsCannotBeClosedAtOnce) {
  expectLaunchFromHost([] {
    const rlimit limit = {1024, 4096};
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(dup2(0, 700), 700);
    support::refuseSystemCall(__NR_close_range, ENOSYS);
  });
}

TEST(WorkspaceHost, MayHaveNoDescriptorLeftAndIsToldSo) {
  const std::string application = makeWitness();
  ChildProcess host = ChildProcess::fork([&] {
    const rlimit limit = {4, 1024};
    setrlimit(RLIMIT_NOFILE, &limit);
    return openApplication(application) ? 1 : 0;
  });
  EXPECT_EQ(host.wait(), 0);
  EXPECT_TRUE(processesOf().empty());
}

// --- What cannot be opened. ---

class WorkspaceFailure : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(hasNoChild());
    EXPECT_TRUE(processesOf().empty());
    EXPECT_EQ(support::openDescriptorCount(), descriptors_);
  }

  std::string makeWithExecutable(const std::string& content, mode_t mode) const {
    const std::string application = makeWitness();
    const std::string executable = support::executableOf(application);
    fs::remove(executable);
    support::writeFile(executable, content);
    EXPECT_EQ(chmod(executable.c_str(), mode), 0);
    return application;
  }

 private:
  const int descriptors_ = support::openDescriptorCount();
};

TEST_F(WorkspaceFailure, NoSuchBundle) {
  EXPECT_FALSE(openApplication(support::sandbox() + "/apps/None.app"));
  EXPECT_FALSE(openApplication(""));
  EXPECT_FALSE(openApplication("/"));
}

TEST_F(WorkspaceFailure, AFolderOrAFileThatIsNoBundle) {
  EXPECT_FALSE(openApplication(support::sandbox()));
  EXPECT_FALSE(openApplication("/bin/cat"));
}

TEST_F(WorkspaceFailure, APathWithANulInIt) {
  EXPECT_FALSE(openApplication(makeWitness() + std::string("\0.app", 5)));
}

TEST_F(WorkspaceFailure, MissingExecutable) {
  const std::string application = makeWitness();
  fs::remove(support::executableOf(application));
  EXPECT_FALSE(openApplication(application));
}

TEST_F(WorkspaceFailure, ExecutableThatMayNotBeExecuted) {
  EXPECT_FALSE(openApplication(makeWithExecutable("#!/bin/sh\n", 0644)));
}

TEST_F(WorkspaceFailure, ExecutableWhoseInterpreterIsMissing) {
  EXPECT_FALSE(openApplication(makeWithExecutable("#!/nowhere/interpreter\n", 0755)));
}

TEST_F(WorkspaceFailure, ExecutableThatIsNoProgram) {
  EXPECT_FALSE(
      openApplication(makeWithExecutable("\x7F"
                                         "ELF, but no more",
                                         0755)));
}

TEST_F(WorkspaceFailure, ExecutableThatIsAFolder) {
  const std::string application = makeWitness();
  fs::remove(support::executableOf(application));
  fs::create_directory(support::executableOf(application));
  EXPECT_FALSE(openApplication(application));
}

TEST_F(WorkspaceFailure, NoRuntimeFolderInWhichLaunchesCouldBeToldApart) {
  support::writeFile(support::sandbox() + "/runtime/ClientComm", "in the way");
  EXPECT_FALSE(openApplication(makeWitness()));
}

TEST_F(WorkspaceFailure, LeavesTheNextLaunchWhole) {
  EXPECT_FALSE(openApplication(makeWithExecutable("#!/nowhere/interpreter\n", 0755)));
  fs::remove_all(support::sandbox() + "/apps");
  EXPECT_TRUE(openApplication(makeWitness()));
  Testimony().end();
}

// --- One instance per bundle identifier. ---

TEST(WorkspaceOneInstance, TheSecondCallStartsNothingAndSucceeds) {
  const std::string application = makeWitness();
  EXPECT_TRUE(openApplication(application));
  EXPECT_TRUE(openApplication(application));
  EXPECT_EQ(processesOf().size(), 1U);
}

TEST(WorkspaceOneInstance, ACopyThatRunsFromElsewhereDoesNotCount) {
  const std::string first = makeWitness("first");
  const std::string second = makeWitness("second");
  EXPECT_TRUE(openApplication(first));
  EXPECT_TRUE(openApplication(second));
  EXPECT_EQ(processesOf().size(), 2U);
}

TEST(WorkspaceOneInstance, OneThatWasOpenedThroughASymbolicLinkCounts) {
  makeWitness();
  fs::create_directory_symlink("apps", support::sandbox() + "/link");
  EXPECT_TRUE(openApplication(support::sandbox() + "/link/Witness.app"));
  EXPECT_TRUE(openApplication(support::sandbox() + "/apps/Witness.app"));
  EXPECT_EQ(processesOf().size(), 1U);
}

TEST(WorkspaceOneInstance, OneWhoseBundleWasReplacedMeanwhileCountsToo) {
  const std::string application = makeWitness();
  ASSERT_TRUE(openApplication(application));
  const Testimony first;
  fs::remove_all(application);
  makeWitness();
  EXPECT_TRUE(openApplication(application));
  EXPECT_EQ(processesOf(), std::vector<pid_t>{first.pid()});
}

TEST(WorkspaceOneInstance, OneThatHasEndedDoesNot) {
  const std::string application = makeWitness();
  ASSERT_TRUE(openApplication(application));
  const Testimony first;
  first.end();
  EXPECT_TRUE(openApplication(application));
  EXPECT_NE(Testimony().pid(), first.pid());
}

TEST(WorkspaceOneInstance, OneOfAnotherUserDoesNot) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
  ChildProcess other =
      support::runApplication(support::makeApplication("Other", identifier(), "other-user"));
  ASSERT_EQ(other.readLine(), "ready");
  EXPECT_TRUE(openApplication(makeWitness()));
  EXPECT_EQ(processesOf().size(), 1U);
}

TEST(WorkspaceOneInstance, TwentyCallsFromTenProcessesAtOnceStartOne) {
  const std::string application = makeWitness();
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  std::vector<ChildProcess> hosts;
  for (int i = 0; i < 10; ++i) {
    hosts.push_back(ChildProcess::fork([&] {
      close(gate[1]);
      char byte = 0;
      if (read(gate[0], &byte, 1) != 0) return 2;
      // A launch that finds the others at work for too long is repeated, as by a restart step.
      const auto open = [&] { return openApplication(application); };
      return support::waitUntil(open) && support::waitUntil(open) ? 0 : 1;
    }));
  }
  close(gate[0]);
  close(gate[1]);
  for (ChildProcess& host : hosts) EXPECT_EQ(host.wait(), 0);
  EXPECT_EQ(processesOf().size(), 1U);
}

TEST(WorkspaceOneInstance, ALaunchIsRefusedWhileAnotherHoldsTheRuntimeFolder) {
  const std::string application = makeWitness();
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  const ScopedFd lock(::open(clientcomm::runtimeFolderPath().c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(openApplication(application));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_TRUE(processesOf().empty());
  ASSERT_EQ(flock(lock.get(), LOCK_UN), 0);
  EXPECT_TRUE(openApplication(application));
  EXPECT_EQ(processesOf().size(), 1U);
  ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
  EXPECT_TRUE(openApplication(application)) << "it runs, so there is nothing to wait for";
}

TEST(WorkspaceOneInstance, ALaunchLeavesOneRecordForTheNext) {
  const std::string application = makeWitness();
  EXPECT_TRUE(openApplication(application));
  const pid_t pid = Testimony().pid();
  const std::set<std::string> allowed = {clientcomm::processRecordName(pid),
                                         clientcomm::launchRecordName(application)};
  for (const auto& entry : fs::directory_iterator(clientcomm::runtimeFolderPath())) {
    EXPECT_TRUE(allowed.contains(entry.path().filename())) << entry.path();
  }
}

// --- Where applications are found. ---

TEST(WorkspaceApplications, AreFoundInTheUsersFolderByTheirNames) {
  const std::string path = support::sandbox() + "/home/Applications/My Tool.app";
  fs::create_directories(path);
  const Workspace& workspace = Workspace::sharedWorkspace();
  EXPECT_EQ(workspace.fullPathForApplication("My Tool"), path);
  EXPECT_EQ(workspace.fullPathForApplication("My Tool.app"), path);
}

TEST(WorkspaceApplications, AreNotFoundUnderAnyOtherName) {
  fs::create_directories(support::sandbox() + "/home/Applications/Tool.app");
  fs::create_directories(support::sandbox() + "/home/Elsewhere.app");
  support::writeFile(support::sandbox() + "/home/Applications/File.app", "no folder");
  for (const std::string& name :
       {std::string("tool"), std::string("Tool.APP"), std::string("Missing"), std::string(""),
        std::string("../Elsewhere"), std::string("/bin"), std::string("File"),
        std::string("Tool\0.app", 9)}) {
    EXPECT_FALSE(Workspace::sharedWorkspace().fullPathForApplication(name)) << name;
  }
}

}  // namespace
