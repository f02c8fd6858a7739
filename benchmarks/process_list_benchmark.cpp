#include <dirent.h>
#include <fcntl.h>
#include <libproc2/pids.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"

using clientcomm::OptionalString;

// Whether an application runs, where it does not, so that every process has to be looked at.

namespace bench {
namespace {

constexpr int kCounts[] = {100, 1000, 5000};

constexpr const char kIdentifier[] = "com.example.nobody";
constexpr const char kBundlePath[] = "/opt/Nobody.app";
constexpr std::string_view kExecutable = "/opt/Nobody.app/Contents/Linux/Nobody";

/// Processes that do nothing, and are in no bundle.
class OtherProcesses {
 public:
  /// The processes, `count` of them from now on.
  static void setCount(std::size_t count) {
    static auto* const processes = new OtherProcesses;
    processes->grow(count);
    processes->shrink(count);
  }

 private:
  void grow(std::size_t count) {
    char program[] = "/bin/sleep";
    char time[] = "3600";
    char* const arguments[] = {program, time, nullptr};
    while (ids_.size() < count) {
      pid_t id = 0;
      if (posix_spawn(&id, program, nullptr, nullptr, arguments, environ) != 0) {
        std::perror("posix_spawn");
        std::exit(1);
      }
      ids_.push_back(id);
    }
  }

  void shrink(std::size_t count) {
    for (std::size_t i = count; i < ids_.size(); ++i) kill(ids_[i], SIGKILL);
    for (; ids_.size() > count; ids_.pop_back()) waitpid(ids_.back(), nullptr, 0);
  }

  std::vector<pid_t> ids_;
};

void require(bool isTrue, const char* what) {
  if (isTrue) return;
  std::fprintf(stderr, "%s failed\n", what);
  std::exit(1);
}

bool isRunningByLibrary() {
  return TQHPProcessList::share().applicationIsRunning(OptionalString(kIdentifier),
                                                       OptionalString(kBundlePath));
}

/// One pass over /proc, with one link read for each process.
bool isRunningByLinks() {
  DIR* const directory = opendir("/proc");
  require(directory != nullptr, "opendir");
  bool isFound = false;
  while (const dirent* const entry = readdir(directory)) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    char path[sizeof entry->d_name + sizeof "/exe"];
    char target[PATH_MAX];
    std::snprintf(path, sizeof path, "%s/exe", entry->d_name);
    const ssize_t length = readlinkat(dirfd(directory), path, target, sizeof target);
    if (length > 0 && std::string_view(target, static_cast<std::size_t>(length)) == kExecutable) {
      isFound = true;
    }
  }
  closedir(directory);
  return isFound;
}

/// The same question to the library that pgrep is made of.
bool isRunningByProc() {
  pids_item items[] = {PIDS_ID_PID, PIDS_EXE};
  pids_info* info = nullptr;
  require(procps_pids_new(&info, items, 2) == 0, "procps_pids_new");
  bool isFound = false;
  while (pids_stack* const stack = procps_pids_get(info, PIDS_FETCH_TASKS_ONLY)) {
    if (PIDS_VAL(1, str, stack, info) == kExecutable) isFound = true;
  }
  procps_pids_unref(&info);
  return isFound;
}

template <typename Ask>
Sample timed(std::size_t count, Ask ask) {
  OtherProcesses::setCount(count);
  return [ask] {
    const auto start = Clock::now();
    const bool isFound = ask();
    const double seconds = secondsSince(start);
    require(!isFound, "the look at all processes");
    return seconds;
  };
}

}  // namespace

void registerProcessListBenchmarks(const Plan& plan) {
  for (const int number : kCounts) {
    const std::string row = "process-list/" + std::to_string(number);
    const auto count = static_cast<std::size_t>(plan.atMost(number));
    const int samples = number > 1000 ? 10 : 50;
    registerSampled(plan, row + "/clientcomm", samples,
                    [count] { return timed(count, isRunningByLibrary); });
    registerSampled(plan, row + "/floor", samples,
                    [count] { return timed(count, isRunningByLinks); });
    registerSampled(plan, row + "/alternative", samples,
                    [count] { return timed(count, isRunningByProc); });
  }
}

void endOtherProcesses() { OtherProcesses::setCount(0); }

}  // namespace bench
