#include "tests/support/stepped_process.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iterator>

namespace support {
namespace {

// Where the kernel has a call of its own for sizes of 64 bits, the C library uses that.
#ifdef SYS_ftruncate64
constexpr long kTruncation = SYS_ftruncate64;
#else
constexpr long kTruncation = SYS_ftruncate;
#endif

constexpr long kChanges[] = {SYS_write,     SYS_pwrite64, kTruncation, SYS_renameat,
                             SYS_renameat2, SYS_unlinkat, SYS_fsync,   SYS_fdatasync,
                             SYS_flock,     SYS_fchmod,   SYS_close};

bool isBeforeChange(pid_t pid) {
  __ptrace_syscall_info info = {};
  if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) <= 0) return false;
  return info.op == PTRACE_SYSCALL_INFO_ENTRY &&
         std::find(std::begin(kChanges), std::end(kChanges), static_cast<long>(info.entry.nr)) !=
             std::end(kChanges);
}

}  // namespace

SteppedProcess::SteppedProcess(const std::function<void()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    body();
    _exit(0);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return;
  pid_ = pid;
  const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
  if (ptrace(PTRACE_SETOPTIONS, pid_, nullptr, options) != 0) kill();
}

SteppedProcess::~SteppedProcess() { kill(); }

bool SteppedProcess::resume() {
  if (pid_ < 0) return false;
  int status = 0;
  if (ptrace(PTRACE_SYSCALL, pid_, nullptr, nullptr) == 0 && waitpid(pid_, &status, 0) == pid_ &&
      WIFSTOPPED(status)) {
    return true;
  }
  pid_ = -1;
  return false;
}

bool SteppedProcess::step() {
  while (resume()) {
    if (isBeforeChange(pid_)) return true;
  }
  return false;
}

void SteppedProcess::kill() {
  if (pid_ < 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace support
