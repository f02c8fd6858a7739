#include "tests/stress/sabotage_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace sabotage {
namespace {

constexpr char kVariable[] = "CLIENTCOMM_SABOTAGE";

struct Counter {
  std::atomic<std::uint64_t> calls;
  char failed[kCounterSize - sizeof calls];
};
static_assert(sizeof(Counter) == kCounterSize);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// Shared by the process and its forked children; null until `begin`.
Counter* counter = nullptr;
std::uint64_t failingCall = 0;
Fault chosenFault = Fault::kEIO;

constexpr unsigned operator|(Fault a, Fault b) {
  return static_cast<unsigned>(a) | static_cast<unsigned>(b);
}
constexpr unsigned operator|(unsigned a, Fault b) { return a | static_cast<unsigned>(b); }

int errorOf(Fault fault) {
  switch (fault) {
    case Fault::kENOSPC:
      return ENOSPC;
    case Fault::kEMFILE:
      return EMFILE;
    case Fault::kEINTR:
      return EINTR;
    case Fault::kENOMEM:
      return ENOMEM;
    case Fault::kEIO:
    case Fault::kKill:
      break;
  }
  return EIO;
}

// Whether the call of `function` that is about to be made fails; `faults` are those that it can
// fail with.
bool fails(const char* function, unsigned faults) {
  if (counter == nullptr) return false;
  if (((faults | Fault::kKill) & static_cast<unsigned>(chosenFault)) == 0) return false;
  if (counter->calls.fetch_add(1) + 1 != failingCall) return false;
  std::strncpy(counter->failed, function, sizeof counter->failed - 1);
  if (chosenFault == Fault::kKill) raise(SIGKILL);
  errno = errorOf(chosenFault);
  return true;
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

constexpr unsigned kPathFaults = Fault::kEIO | Fault::kENOMEM;
constexpr unsigned kEntryFaults = kPathFaults | Fault::kENOSPC;
// Only a file that is made needs room.
constexpr unsigned openFaults(int flags) {
  const unsigned faults = kPathFaults | Fault::kEMFILE | Fault::kEINTR;
  return (flags & O_CREAT) != 0 ? faults | Fault::kENOSPC : faults;
}
constexpr unsigned kReadFaults = Fault::kEIO | Fault::kEINTR;
constexpr unsigned kWriteFaults = kReadFaults | Fault::kENOSPC;
constexpr unsigned kDescriptorFaults = Fault::kEMFILE | Fault::kENOMEM;
constexpr unsigned kAcceptFaults = kDescriptorFaults | Fault::kEINTR;
constexpr unsigned kWaitFaults = Fault::kEINTR | Fault::kENOMEM;

}  // namespace

void announce(const Plan& plan) {
  const std::string text = plan.program + "\n" + std::to_string(static_cast<unsigned>(plan.fault)) +
                           "\n" + std::to_string(plan.call) + "\n" + plan.counterPath;
  setenv(kVariable, text.c_str(), 1);
}

void withdraw() { unsetenv(kVariable); }

void begin() {
  const char* const text = std::getenv(kVariable);
  if (text == nullptr) return;
  std::istringstream lines(text);
  std::string program;
  std::string path;
  unsigned fault = 0;
  std::getline(lines, program);
  lines >> fault >> failingCall >> std::ws;
  std::getline(lines, path);
  if (program != program_invocation_short_name) return;
  const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
  void* const pages = mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (pages == MAP_FAILED) abort();
  chosenFault = static_cast<Fault>(fault);
  counter = static_cast<Counter*>(pages);
}

std::uint64_t countIn(const std::string& path) {
  std::uint64_t count = 0;
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(&count), sizeof count);
  return count;
}

std::string failedIn(const std::string& path) {
  std::string name;
  std::ifstream file(path, std::ios::binary);
  file.seekg(sizeof(std::uint64_t));
  std::getline(file, name, '\0');
  return name;
}

}  // namespace sabotage

// Each stands for the function of the C library that its label names. The label keeps it apart from
// the library's own declaration, which is noexcept.
#define SABOTAGED(result, name, label, parameters, arguments, faults, failure) \
  extern "C" result name parameters __asm__(label);                            \
  extern "C" result name parameters {                                          \
    static auto* const real = sabotage::next<result parameters>(label);        \
    if (sabotage::fails(label, sabotage::faults)) return failure;              \
    return real arguments;                                                     \
  }

// NOLINTBEGIN(bugprone-macro-parentheses)
SABOTAGED(int, failingOpen, "open", (const char* path, int flags, mode_t mode), (path, flags, mode),
          openFaults(flags), -1)
SABOTAGED(int, failingOpen64, "open64", (const char* path, int flags, mode_t mode),
          (path, flags, mode), openFaults(flags), -1)
SABOTAGED(int, failingOpenat, "openat", (int at, const char* path, int flags, mode_t mode),
          (at, path, flags, mode), openFaults(flags), -1)
SABOTAGED(int, failingOpenat64, "openat64", (int at, const char* path, int flags, mode_t mode),
          (at, path, flags, mode), openFaults(flags), -1)
SABOTAGED(ssize_t, failingRead, "read", (int file, void* bytes, size_t size), (file, bytes, size),
          kReadFaults, -1)
SABOTAGED(ssize_t, failingWrite, "write", (int file, const void* bytes, size_t size),
          (file, bytes, size), kWriteFaults, -1)
SABOTAGED(ssize_t, failingPwrite, "pwrite", (int file, const void* bytes, size_t size, off_t at),
          (file, bytes, size, at), kWriteFaults, -1)
SABOTAGED(ssize_t, failingWritev, "writev", (int file, const iovec* pieces, int count),
          (file, pieces, count), kWriteFaults, -1)
SABOTAGED(int, failingFsync, "fsync", (int file), (file), kWriteFaults, -1)
SABOTAGED(int, failingFdatasync, "fdatasync", (int file), (file), kWriteFaults, -1)
SABOTAGED(int, failingFtruncate, "ftruncate", (int file, off_t size), (file, size), kWriteFaults,
          -1)
SABOTAGED(ssize_t, failingCopy, "copy_file_range",
          (int in, off64_t* from, int out, off64_t* to, size_t size, unsigned flags),
          (in, from, out, to, size, flags), kWriteFaults, -1)
SABOTAGED(int, failingRename, "rename", (const char* from, const char* to), (from, to),
          kEntryFaults, -1)
SABOTAGED(int, failingRenameat, "renameat", (int a, const char* from, int b, const char* to),
          (a, from, b, to), kEntryFaults, -1)
SABOTAGED(int, failingRenameat2, "renameat2",
          (int a, const char* from, int b, const char* to, unsigned flags), (a, from, b, to, flags),
          kEntryFaults, -1)
SABOTAGED(int, failingLinkat, "linkat", (int a, const char* from, int b, const char* to, int flags),
          (a, from, b, to, flags), kEntryFaults, -1)
SABOTAGED(int, failingUnlink, "unlink", (const char* path), (path), kPathFaults, -1)
SABOTAGED(int, failingUnlinkat, "unlinkat", (int at, const char* path, int flags),
          (at, path, flags), kPathFaults, -1)
SABOTAGED(int, failingRmdir, "rmdir", (const char* path), (path), kPathFaults, -1)
SABOTAGED(int, failingMkdir, "mkdir", (const char* path, mode_t mode), (path, mode), kEntryFaults,
          -1)
SABOTAGED(int, failingMkdirat, "mkdirat", (int at, const char* path, mode_t mode), (at, path, mode),
          kEntryFaults, -1)
SABOTAGED(int, failingSymlinkat, "symlinkat", (const char* target, int at, const char* path),
          (target, at, path), kEntryFaults, -1)
SABOTAGED(int, failingChmod, "chmod", (const char* path, mode_t mode), (path, mode), kPathFaults,
          -1)
SABOTAGED(int, failingFchmod, "fchmod", (int file, mode_t mode), (file, mode), kPathFaults, -1)
SABOTAGED(int, failingFchmodat, "fchmodat", (int at, const char* path, mode_t mode, int flags),
          (at, path, mode, flags), kPathFaults, -1)
SABOTAGED(int, failingFchown, "fchown", (int file, uid_t user, gid_t group), (file, user, group),
          kPathFaults, -1)
SABOTAGED(int, failingFutimens, "futimens", (int file, const timespec* times), (file, times),
          kPathFaults, -1)
SABOTAGED(int, failingUtimensat, "utimensat",
          (int at, const char* path, const timespec* times, int flags), (at, path, times, flags),
          kPathFaults, -1)
SABOTAGED(int, failingStat, "stat", (const char* path, struct stat* status), (path, status),
          kPathFaults, -1)
SABOTAGED(int, failingLstat, "lstat", (const char* path, struct stat* status), (path, status),
          kPathFaults, -1)
SABOTAGED(int, failingFstat, "fstat", (int file, struct stat* status), (file, status), kPathFaults,
          -1)
SABOTAGED(int, failingFstatat, "fstatat",
          (int at, const char* path, struct stat* status, int flags), (at, path, status, flags),
          kPathFaults, -1)
SABOTAGED(int, failingAccess, "access", (const char* path, int mode), (path, mode), kPathFaults, -1)
SABOTAGED(ssize_t, failingReadlink, "readlink", (const char* path, char* text, size_t size),
          (path, text, size), kPathFaults, -1)
SABOTAGED(ssize_t, failingReadlinkat, "readlinkat",
          (int at, const char* path, char* text, size_t size), (at, path, text, size), kPathFaults,
          -1)
SABOTAGED(DIR*, failingFdopendir, "fdopendir", (int file), (file), kPathFaults, nullptr)
SABOTAGED(dirent*, failingReaddir, "readdir", (DIR * folder), (folder), kPathFaults, nullptr)
SABOTAGED(ssize_t, failingGetdents, "getdents64", (int file, void* entries, size_t size),
          (file, entries, size), kPathFaults, -1)
SABOTAGED(int, failingFlock, "flock", (int file, int operation), (file, operation), kWaitFaults, -1)
SABOTAGED(int, failingSocket, "socket", (int domain, int type, int protocol),
          (domain, type, protocol), kDescriptorFaults, -1)
SABOTAGED(int, failingBind, "bind", (int socket, const sockaddr* address, socklen_t size),
          (socket, address, size), kEntryFaults, -1)
SABOTAGED(int, failingListen, "listen", (int socket, int backlog), (socket, backlog), kPathFaults,
          -1)
SABOTAGED(int, failingConnect, "connect", (int socket, const sockaddr* address, socklen_t size),
          (socket, address, size), kWaitFaults, -1)
SABOTAGED(int, failingAccept, "accept4",
          (int socket, sockaddr* address, socklen_t* size, int flags),
          (socket, address, size, flags), kAcceptFaults, -1)
SABOTAGED(ssize_t, failingSendmsg, "sendmsg", (int socket, const msghdr* message, int flags),
          (socket, message, flags), kWaitFaults, -1)
SABOTAGED(ssize_t, failingRecvmsg, "recvmsg", (int socket, msghdr* message, int flags),
          (socket, message, flags), kWaitFaults, -1)
SABOTAGED(int, failingMemfd, "memfd_create", (const char* name, unsigned flags), (name, flags),
          kDescriptorFaults, -1)
SABOTAGED(int, failingPipe, "pipe2", (int* ends, int flags), (ends, flags), kDescriptorFaults, -1)
SABOTAGED(pid_t, failingFork, "_Fork", (), (), kPathFaults, -1)
SABOTAGED(int, failingExecve, "execve",
          (const char* path, char* const* arguments, char* const* environment),
          (path, arguments, environment), kPathFaults, -1)
SABOTAGED(pid_t, failingWaitpid, "waitpid", (pid_t pid, int* status, int options),
          (pid, status, options), kWaitFaults, -1)
// NOLINTEND(bugprone-macro-parentheses)

// The descriptor is gone all the same, as the system has it.
extern "C" int failingClose(int file) __asm__("close");
extern "C" int failingClose(int file) {
  static auto* const real = sabotage::next<int(int)>("close");
  const bool fails = sabotage::fails("close", sabotage::kReadFaults);
  const int error = errno;
  const int result = real(file);
  if (!fails) return result;
  errno = error;
  return -1;
}
