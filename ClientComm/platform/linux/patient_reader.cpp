#include "ClientComm/platform/linux/patient_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <vector>

#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

using Clock = std::chrono::steady_clock;

// Follows the contents of a file that was read to its end.
constexpr char kEndMark = '.';

// Children that a file system holds although they are killed. With so many no other is started.
constexpr std::size_t kMaximumStuckChildren = 4;

std::vector<pid_t>& stuckChildren() {
  static auto* const children = new std::vector<pid_t>;
  return *children;
}

// The host does not see the child: it sends no SIGCHLD, and only __WALL waits for it.
bool isReaped(pid_t child) noexcept { return waitpid(child, nullptr, WNOHANG | __WALL) != 0; }

// A child that is held up keeps nothing of the host's open.
void closeAllButStandardInput() noexcept {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, 1U, UINT_MAX, 0U) == 0) return;
#endif
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  for (int descriptor = 1; descriptor < static_cast<int>(limit.rlim_cur); ++descriptor) {
    close(descriptor);
  }
}

// Runs in the child: async-signal-safe functions only.
int copyFile(const char* path, int output, std::size_t limit) noexcept {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (dup2(output, STDIN_FILENO) != STDIN_FILENO) return 1;
  closeAllButStandardInput();
  const int file = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  struct stat status = {};
  if (file < 0 || fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return 1;
  std::array<char, 4096> chunk;
  for (std::size_t total = 0; total <= limit;) {
    const ssize_t count = readSome(file, chunk.data(), chunk.size());
    if (count < 0) return 1;
    if (count == 0) return writeAll(STDIN_FILENO, &kEndMark, 1).isOk() ? 0 : 1;
    total += static_cast<std::size_t>(count);
    if (!writeAll(STDIN_FILENO, chunk.data(), static_cast<std::size_t>(count)).isOk()) return 1;
  }
  return 1;
}

/// @return the child, or -1.
pid_t startChild(const char* path, int output, std::size_t limit) noexcept {
  // The host's signal handlers must not run in the child.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  // A fork without SIGCHLD.
  const auto child = static_cast<pid_t>(syscall(SYS_clone, 0UL, 0UL, 0UL, 0UL, 0UL));
  if (child == 0) _exit(copyFile(path, output, limit));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return child;
}

enum class Outcome { kEnd, kTooLate };

Outcome receive(int input, Clock::time_point deadline, std::string& bytes) {
  std::array<char, 4096> chunk;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return Outcome::kTooLate;
    pollfd entry{input, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(left.count())) <= 0) continue;
    const ssize_t count = readSome(input, chunk.data(), chunk.size());
    if (count == 0) return Outcome::kEnd;
    if (count > 0) bytes.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

// The child has closed its output or is killed, and exits unless its file system holds it.
void reap(pid_t child, Clock::time_point deadline) {
  while (!isReaped(child)) {
    if (Clock::now() >= deadline) {
      kill(child, SIGKILL);
      stuckChildren().push_back(child);
      return;
    }
    sched_yield();
  }
}

}  // namespace

Status readByChildProcess(const std::string& path, std::size_t limit, std::string& bytes) {
  static Clock::time_point earliest;
  std::erase_if(stuckChildren(), isReaped);
  if (Clock::now() < earliest || stuckChildren().size() >= kMaximumStuckChildren) {
    return Status::ofFile(EBUSY, "readByChildProcess", path);
  }
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return Status::ofFile(errno, "pipe2", path);
  const ScopedFd input(ends[0]);
  ScopedFd output(ends[1]);
  const pid_t child = startChild(path.c_str(), output.get(), limit);
  if (child < 0) return Status::ofFile(errno, "clone", path);
  output.reset();
  const auto deadline = Clock::now() + kReadLimit;
  bytes.clear();
  const Outcome outcome = receive(input.get(), deadline, bytes);
  if (outcome == Outcome::kTooLate) earliest = Clock::now() + kReadPause;
  reap(child, deadline);
  if (outcome == Outcome::kTooLate) return Status::ofFile(ETIMEDOUT, "readByChildProcess", path);
  const bool isWhole = bytes.ends_with(kEndMark) && bytes.size() - 1 <= limit;
  if (!isWhole) return Status::ofFile(EIO, "readByChildProcess", path);
  bytes.pop_back();
  return {};
}

}  // namespace clientcomm
