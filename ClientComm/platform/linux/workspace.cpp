#include "ClientComm/platform/workspace.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <optional>
#include <utility>
#include <vector>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/fixed_text.h"
#include "ClientComm/platform/linux/launch_end.h"
#include "ClientComm/platform/linux/launch_environment.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/running_application.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/owner_thread.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/bundle_files.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

// In the order in which they are searched: the user's own folder first.
constexpr FixedText<23> kApplicationFolders[] = {"~/Applications", "/Applications",
                                                 "/usr/local/Applications", "/opt"};

constexpr std::chrono::milliseconds kLongestWaitForOtherLaunches{100};

/// What the launched process needs, made before the fork: after it, only calls are allowed that
/// are safe in a signal handler, since another thread of the host may have held any lock.
struct Launch {
  const char* executable;
  std::array<char*, 2> arguments;
  char* const* environment;
  ScopedFd nullDevice;
  ScopedFd report;
  ScopedFd lock;
  ScopedFd end;  ///< Takes the wait status of the launched process; invalid for none.
};

// Moves a descriptor out of the way of the standard streams, which a host may have closed.
ScopedFd aboveStandardStreams(ScopedFd descriptor) noexcept {
  if (descriptor.get() > STDERR_FILENO || !descriptor.isValid()) return descriptor;
  return ScopedFd(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

void closeDescriptors(int first, int last) noexcept {
  if (first > last ||
      close_range(static_cast<unsigned>(first), static_cast<unsigned>(last), 0) == 0) {
    return;
  }
  // Without that system call (a sandbox may withhold it) each is closed by itself.
  constexpr rlim_t kMostDescriptors = 1 << 20;
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const int end = static_cast<int>(std::min(limit.rlim_max, kMostDescriptors));
  for (int descriptor = first; descriptor <= last && descriptor < end; ++descriptor) {
    close(descriptor);
  }
}

// A signal that the host ignores would be ignored by the launched process too.
void resetSignalDispositions() noexcept {
  struct sigaction byDefault = {};
  byDefault.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &byDefault, nullptr);
}

/// The calls that can fail in the forked processes, which have no memory in common with the host.
enum class LaunchCall { kRun, kDetach, kFork, kExecute };

constexpr const char* nameOf(LaunchCall call) noexcept {
  switch (call) {
    case LaunchCall::kDetach:
      return "detachFromHost";
    case LaunchCall::kFork:
      return "fork";
    case LaunchCall::kExecute:
      return "execve";
    case LaunchCall::kRun:
      break;
  }
  return "readOutcome";
}

/// How a launch went: the process, or the errno value that it failed with and the call.
struct Outcome {
  int error;
  pid_t pid;
  LaunchCall call;
};

// Of a process that ended without a word, or whose word was lost.
constexpr Outcome kUnknownOutcome = {ECHILD, 0, LaunchCall::kRun};

void writeOutcome(int pipe, Outcome outcome) noexcept {
  // The reader has its own outcome for a pipe that ends without one.
  writeAll(pipe, &outcome, sizeof outcome).ignore();
}

// The outcome that comes through the pipe; `otherwise` when it ends without one.
Outcome readOutcome(int pipe, Outcome otherwise) noexcept {
  Outcome outcome = {};
  return readSome(pipe, &outcome, sizeof outcome) == sizeof outcome ? outcome : otherwise;
}

int detachFromHost(const Launch& launch) noexcept {
  resetSignalDispositions();
  if (setsid() < 0 || chdir("/") != 0) return errno;
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (dup2(launch.nullDevice.get(), stream) < 0) return errno;
  }
  int next = STDERR_FILENO + 1;
  while (next != INT_MAX) {
    int kept = INT_MAX - 1;
    for (const int descriptor : {launch.report.get(), launch.lock.get(), launch.end.get()}) {
      if (descriptor >= next) kept = std::min(kept, descriptor);
    }
    closeDescriptors(next, kept - 1);
    next = kept + 1;
  }
  return 0;
}

// Where the host reaps every child itself, or has the system do so, there is nothing left to reap.
void reap(pid_t pid) noexcept {
  while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
}

[[noreturn]] void execute(const Launch& launch, int report) noexcept {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  execve(launch.executable, launch.arguments.data(), launch.environment);
  writeOutcome(report, {errno, 0, LaunchCall::kExecute});
  _exit(127);
}

// Becomes the application once `parent`, which forked this process, has ended: the application is
// an orphan from its first instruction on.
[[noreturn]] void executeAsOrphan(const Launch& launch, pid_t parent, int hold,
                                  int report) noexcept {
  char byte = 0;
  static_cast<void>(readSome(hold, &byte, 1));  // returns at the end of the parent
  // A process that ends closes its descriptors a moment before it leaves its children.
  while (getppid() == parent) sched_yield();
  writeOutcome(report, {0, getpid(), LaunchCall::kRun});
  execute(launch, report);
}

// Reports to the host once the new program is in place, in which moment the pipe closes.
// @return whether it is.
bool watchApplication(const Launch& launch, int report) noexcept {
  Outcome outcome = readOutcome(report, kUnknownOutcome);
  if (outcome.error == 0) outcome = readOutcome(report, outcome);
  writeOutcome(launch.report.get(), outcome);
  return outcome.error == 0;
}

// Writes the wait status of `application` to the host where it ends within the launch limit.
void awaitEnd(const Launch& launch, pid_t application) noexcept {
  close(launch.report.get());
  close(launch.lock.get());
  struct sigaction ended = {};
  ended.sa_handler = SIG_DFL;
  ended.sa_flags = SA_NOCLDSTOP;
  sigaction(SIGCHLD, &ended, nullptr);
  sigset_t child;
  sigemptyset(&child);
  sigaddset(&child, SIGCHLD);
  constexpr timespec kLimit = {
      std::chrono::duration_cast<std::chrono::seconds>(kLaunchLimit).count(), 0};
  int status = 0;
  pid_t reaped = waitpid(application, &status, WNOHANG);
  if (reaped == 0 && sigtimedwait(&child, nullptr, &kLimit) == SIGCHLD) {
    reaped = waitpid(application, &status, WNOHANG);
  }
  // The host reads it from its main loop, if it still runs.
  if (reaped == application) writeAll(launch.end.get(), &status, sizeof status).ignore();
}

// Becomes the parent of the application, which alone learns how it ends. @return an errno value.
int observeApplication(const Launch& launch) noexcept {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return errno;
  const pid_t application = _Fork();
  if (application < 0) return errno;
  if (application == 0) {
    writeOutcome(report[1], {0, getpid(), LaunchCall::kRun});
    execute(launch, report[1]);
  }
  close(report[1]);
  if (watchApplication(launch, report[0])) awaitEnd(launch, application);
  _exit(0);
}

// Forks the process that becomes the application when this one has ended, and another that watches
// it: the host waits for a word of that one, not for its end. Both pipes are made only here, where
// no other thread of the host can fork a copy of them. @return 0 or an errno value.
int forkApplication(const Launch& launch) noexcept {
  int hold[2];
  int report[2];
  if (pipe2(hold, O_CLOEXEC) != 0 || pipe2(report, O_CLOEXEC) != 0) return errno;
  const pid_t parent = getpid();
  const pid_t application = _Fork();
  if (application < 0) return errno;
  if (application == 0) {
    close(hold[1]);
    executeAsOrphan(launch, parent, hold[0], report[1]);
  }
  const pid_t watcher = _Fork();
  if (watcher == 0) {
    close(hold[1]);
    close(report[1]);
    watchApplication(launch, report[0]);
    _exit(0);
  }
  const int error = errno;
  if (watcher < 0) kill(application, SIGKILL);
  return watcher < 0 ? error : 0;
}

// Forks the process that observes the application. @return 0 or an errno value.
int forkObserver(const Launch& launch) noexcept {
  const pid_t observer = _Fork();
  if (observer != 0) return observer < 0 ? errno : 0;
  writeOutcome(launch.report.get(), {observeApplication(launch), 0, LaunchCall::kFork});
  _exit(0);
}

[[noreturn]] void runIntermediate(const Launch& launch) noexcept {
  Outcome outcome = {detachFromHost(launch), 0, LaunchCall::kDetach};
  if (outcome.error == 0) {
    const auto fork = launch.end.isValid() ? forkObserver : forkApplication;
    outcome = {fork(launch), 0, LaunchCall::kFork};
  }
  if (outcome.error != 0) writeOutcome(launch.report.get(), outcome);
  _exit(0);
}

// A signal handler of the host must not run in the forked copy.
pid_t forkWithSignalsBlocked(const Launch& launch) noexcept {
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  const pid_t pid = _Fork();
  if (pid == 0) runIntermediate(launch);
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  errno = error;
  return pid;
}

// The pipe through which the observer of the launched process says how that has ended.
struct EndPipe {
  ScopedFd input;
  ScopedFd output;
};

// Invalid where there is no need for it. Without it, the end is not told.
EndPipe makeEndPipe() noexcept {
  int ends[2];
  if (!isReporting() || pipe2(ends, O_CLOEXEC) != 0) return {};
  return {ScopedFd(ends[0]), aboveStandardStreams(ScopedFd(ends[1]))};
}

// Success where `error` is 0.
Status launchStatus(int error, const char* call, const std::string& executable) noexcept {
  return {kProcessErrorDomain, error, call, executable};
}

/// Starts the program at `executable` as a process of its own; returns when it runs. Should the
/// host be killed meanwhile, the launch goes on, and `lock` is held until the program is in place:
/// the next holder must not find the program missing and launch another. If the outcome is unknown,
/// `lock` is left to the launch, which may still be under way.
Status launchDetached(std::string executable, DirectoryLock& lock, pid_t& process) {
  std::vector<std::string> entries = launchEnvironment(environ);
  std::vector<char*> environment;
  environment.reserve(entries.size() + 1);
  for (std::string& entry : entries) environment.push_back(entry.data());
  environment.push_back(nullptr);
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return launchStatus(errno, "pipe2", executable);
  const ScopedFd outcome(report[0]);
  EndPipe end = makeEndPipe();
  Launch launch{executable.c_str(),
                {executable.data(), nullptr},
                environment.data(),
                aboveStandardStreams(ScopedFd(open("/dev/null", O_RDWR | O_CLOEXEC))),
                aboveStandardStreams(ScopedFd(report[1])),
                ScopedFd(fcntl(lock.descriptor(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
                std::move(end.output)};
  if (!launch.nullDevice.isValid() || !launch.report.isValid() || !launch.lock.isValid()) {
    return launchStatus(errno, launch.nullDevice.isValid() ? "fcntl" : "open", executable);
  }
  const pid_t pid = forkWithSignalsBlocked(launch);
  if (pid < 0) return launchStatus(errno, "fork", executable);
  launch.report.reset();
  launch.end.reset();
  const Outcome result = readOutcome(outcome.get(), kUnknownOutcome);
  if (result.error == kUnknownOutcome.error) lock.leaveToCopies();
  reap(pid);
  process = result.pid;
  if (result.error == 0 && end.input.isValid()) reportEndOf(executable, std::move(end.input));
  return launchStatus(result.error, nameOf(result.call), executable);
}

DiagnosticCause causeOf(const Status& launched) noexcept {
  if (launched.code() == kUnknownOutcome.error) return DiagnosticCause::kLaunchOutcomeUnknown;
  const bool isExecution = launched.call() == std::string_view(nameOf(LaunchCall::kExecute));
  return isExecution ? DiagnosticCause::kExecutableNotRun : DiagnosticCause::kLaunchFailed;
}

// Launches the application that is not known to run, if its last launch does not speak against it.
Status launchAgain(int folder, std::string executable, const Bundle& bundle,
                   const std::optional<LaunchRecord>& last, DirectoryLock& lock,
                   DiagnosticCause& cause) {
  const std::string state = stateOfBundle(bundle.bundlePath(), executable);
  const LaunchAdvice advice = launchAdvice(last, state);
  if (advice == LaunchAdvice::kIsStarting) return {};
  if (advice != LaunchAdvice::kLaunch) {
    const bool isHung = advice == LaunchAdvice::kIsHung;
    cause = isHung ? DiagnosticCause::kHelperHangs : DiagnosticCause::kLaunchPutOff;
    return launchStatus(EAGAIN, "launchAdvice", executable);
  }
  const auto time = timeSinceBoot();
  pid_t process = 0;
  Status launched = launchDetached(std::move(executable), lock, process);
  cause = causeOf(launched);
  if (!launched.isOk()) return launched;
  constexpr auto kNotRecorded = DiagnosticCause::kLaunchNotRecorded;
  const Status recorded = recordLaunchedProcess(process, bundle);
  // The process may have written its own record already, or have ended.
  if (recorded.code() != EEXIST && recorded.code() != ESRCH) recorded.report(kNotRecorded);
  const int failures = last && last->bundleState == state ? last->failures + 1 : 0;
  noteLaunch(folder, bundle.bundleIdentifier().value_or(""),
             {bundle.bundlePath(), state, process, processStartTime(process).value_or(0), time,
              failures, ownPIDNamespace()})
      .report(kNotRecorded);  // this process remembers it all the same
  // It may have opened before there was a record for it to remove.
  const auto record = processRecordForPID(process);
  if (record && record->isOpen) {
    // A record that stays is of a launch that failed only if the process is gone.
    forgetLaunch(folder, bundle.bundlePath(), process).report(kNotRecorded);
  }
  return launched;
}

// Among all processes of this user, one at a time looks and launches.
Status launchUnlessRunning(std::string executable, const Bundle& bundle, DiagnosticCause& cause) {
  const ScopedFd folder = openRuntimeFolder(IfMissing::kCreate);
  cause = DiagnosticCause::kRuntimeFolderUnusable;
  if (!folder.isValid()) return Status::ofFile(errno, "openRuntimeFolder", runtimeFolderPath());
  DirectoryLock lock(std::string(ProcPath::ofDescriptor(folder.get()).view()) + "/.",
                     kLongestWaitForOtherLaunches);
  // Before the look at the processes: an application that opens removes its launch record. One that
  // opened just after the look would have neither a record nor been seen.
  const auto last = lastLaunchOf(folder.get(), bundle.bundlePath());
  switch (presenceOf(bundle.bundlePath(), bundle.bundleIdentifier())) {
    case Presence::kRunning:
      return {};
    case Presence::kAbsent:
      cause = DiagnosticCause::kLaunchLocked;
      if (!lock.isHeld()) return lock.takeStatus();
      return launchAgain(folder.get(), std::move(executable), bundle, last, lock, cause);
    case Presence::kUnreachable:
      cause = DiagnosticCause::kHelperOutOfReach;
      return launchStatus(EEXIST, "presenceOf", executable);
    case Presence::kUnknown:
      break;
  }
  cause = DiagnosticCause::kProcessesUnreadable;
  return launchStatus(EIO, "presenceOf", executable);
}

// The launched process starts in the root folder.
OptionalString absolutePath(std::string path) {
  if (path.starts_with('/')) return path;
  std::array<char, PATH_MAX> folder;
  if (getcwd(folder.data(), folder.size()) == nullptr) return std::nullopt;
  return stringByAppendingPathComponent(folder.data(), path);
}

bool isDirectory(const std::string& path) noexcept {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Status openBundle(const std::string& path, DiagnosticCause& cause) {
  if (path.find('\0') != std::string::npos) return launchStatus(EINVAL, "openFile", path);
  const OptionalString absolute = absolutePath(path);
  if (!absolute) return launchStatus(errno, "getcwd", path);
  const Bundle bundle(*absolute);
  auto executable = bundle.executablePath();
  cause = DiagnosticCause::kExecutableMissing;
  if (!executable) return launchStatus(ENOENT, "executablePath", path);
  return launchUnlessRunning(*std::move(executable), bundle, cause);
}

}  // namespace

Workspace& Workspace::sharedWorkspace() {
  requireOwnerThread();
  static Workspace& workspace = *new Workspace;
  return workspace;
}

OptionalString Workspace::fullPathForApplication(const std::string& name) const {
  if (name.empty() || name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
    return std::nullopt;
  }
  const std::string fileName =
      name.ends_with(kApplicationSuffix) ? name : name + std::string(kApplicationSuffix);
  for (const std::string_view folder : kApplicationFolders) {
    std::string path =
        stringByAppendingPathComponent(stringByExpandingTildeInPath(std::string(folder)), fileName);
    if (isDirectory(path)) return path;
  }
  return std::nullopt;
}

Status Workspace::openFile(const std::string& path) {
  auto cause = DiagnosticCause::kLaunchFailed;
  Status opened = openBundle(path, cause);
  // Of the runtime folder, and of a helper that is not installed, has been reported why.
  const bool isKnown = cause == DiagnosticCause::kRuntimeFolderUnusable ||
                       (cause == DiagnosticCause::kExecutableMissing && !isDirectory(path));
  if (!isKnown) opened.report(cause);
  return opened;
}

}  // namespace clientcomm
