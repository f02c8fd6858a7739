#include "ClientComm/platform/process_table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_ids.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/posix/io.h"

namespace clientcomm {
namespace {

constexpr std::size_t kSpareRecords = 16;

// Atomic, and below by thread: TQHPProcessList is for any thread.
std::atomic<SysctlFunction> replacement = nullptr;

// Set while this thread reads a table for the process IDs alone: names and users take 2.5 times as
// long to read as all the rest.
thread_local bool onlyIDsAreWanted = false;

// The only processes that are wanted then; null for all. Each that the kernel lists costs 1 us.
thread_local const std::vector<std::int32_t>* wantedProcesses = nullptr;

class OnlyIDsAreWanted {
 public:
  explicit OnlyIDsAreWanted(const std::vector<std::int32_t>* processes) noexcept {
    onlyIDsAreWanted = true;
    wantedProcesses = processes;
  }
  ~OnlyIDsAreWanted() {
    onlyIDsAreWanted = false;
    wantedProcesses = nullptr;
  }
  OnlyIDsAreWanted(const OnlyIDsAreWanted&) = delete;
  OnlyIDsAreWanted& operator=(const OnlyIDsAreWanted&) = delete;
};

struct FreeTable {
  void operator()(kinfo_proc* table) const noexcept { std::free(table); }
};

// How many records the last read that did not fit would have taken. The size that the kernel gives
// for the directory /proc counts processes, but nothing promises it.
std::atomic<std::size_t> knownCount = 0;

// Whether the process ended meanwhile, by the error that its entry gives then.
bool isGone(int error) noexcept { return error == ENOENT || error == ESRCH; }

// Reads the command's name. It stays empty where the system hides other users' processes.
int readCommand(int command, char (&name)[kMaximumCommandLength + 1]) noexcept {
  char text[256];
  const ssize_t length = readSome(command, text, sizeof text);
  if (length <= 0) return length < 0 ? errno : ESRCH;
  copyCommandName({text, static_cast<std::size_t>(length)}, name);
  return 0;
}

// Reads the fields of the record beside the process ID. The command's descriptor belongs to that
// very process: as it can still be read after the directory's owner was asked for, no later process
// of the same ID was asked.
// @return 0 or an errno value.
int readDetails(int directory, kinfo_proc& record) noexcept {
  const pid_t pid = record.kp_proc.p_pid;
  const ScopedFd command(
      openat(directory, ProcPath::ofProcess(pid, "/comm").belowProcFolder(), O_RDONLY | O_CLOEXEC));
  const int error = command.isValid() ? 0 : errno;
  if (error != 0 && error != EACCES && error != EPERM) return error;
  struct stat status = {};
  if (fstatat(directory, ProcPath::ofProcess(pid).belowProcFolder(), &status, 0) != 0) return errno;
  record.kp_eproc.e_ucred.cr_uid = status.st_uid;
  return command.isValid() ? readCommand(command.get(), record.kp_proc.p_comm) : 0;
}

// Whether `pid` is a process. A thread has an entry in /proc too, which is not listed there; it
// gets no pidfd.
bool isProcess(pid_t pid) noexcept {
  return ScopedFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))).isValid();
}

// @param index of the next wanted process.
pid_t nextProcess(ProcessIDReader& processes, std::size_t& index) noexcept {
  if (wantedProcesses == nullptr) return processes.next();
  while (index < wantedProcesses->size()) {
    if (const pid_t pid = (*wantedProcesses)[index++]; isProcess(pid)) return pid;
  }
  return 0;
}

int fail(int error) noexcept {
  errno = error;
  return -1;
}

int sizeTable(std::size_t* length) noexcept {
  struct stat status = {};
  if (stat(kProcFolder, &status) != 0) return -1;
  const std::size_t count = std::max<std::size_t>(status.st_nlink, knownCount);
  *length = (count + kSpareRecords) * sizeof(kinfo_proc);
  return 0;
}

int readTable(void* buffer, std::size_t* length) noexcept {
  const std::size_t capacity = *length / sizeof(kinfo_proc);
  auto* const table = static_cast<char*>(buffer);
  std::size_t count = 0;
  std::size_t needed = 0;
  std::size_t index = 0;
  ProcessIDReader processes;
  while (const pid_t pid = nextProcess(processes, index)) {
    if (++needed > capacity) continue;
    kinfo_proc record = {};
    record.kp_proc.p_pid = pid;
    const int error = onlyIDsAreWanted ? 0 : readDetails(processes.directory(), record);
    if (isGone(error)) continue;
    if (error != 0) return fail(error);
    std::memcpy(table + count++ * sizeof record, &record, sizeof record);
  }
  if (processes.error() != 0) return fail(processes.error());
  *length = count * sizeof(kinfo_proc);
  if (needed <= capacity) return 0;
  knownCount = needed;
  return fail(ENOMEM);
}

int systemSysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp,
                 const void* newp, std::size_t /*newlen*/) noexcept {
  if (name == nullptr || oldlenp == nullptr) return fail(EFAULT);
  if (namelen != 3 || name[0] != kCtlKern || name[1] != kKernProc || name[2] != kKernProcAll) {
    return fail(ENOENT);
  }
  if (newp != nullptr) return fail(EPERM);
  if (oldp == nullptr) return sizeTable(oldlenp);
  return readTable(oldp, oldlenp);
}

std::vector<std::int32_t> idsOf(ProcessTableReader read,
                                const std::vector<std::int32_t>* wantedAlone) {
  kinfo_proc* records = nullptr;
  std::size_t count = 0;
  {
    const OnlyIDsAreWanted wanted(wantedAlone);
    read(&records, &count);
  }
  const std::unique_ptr<kinfo_proc, FreeTable> table(records);
  std::vector<std::int32_t> pids(count);
  std::transform(records, records + count, pids.begin(),
                 [](const kinfo_proc& process) { return process.kp_proc.p_pid; });
  return pids;
}

}  // namespace

int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp, const void* newp,
           std::size_t newlen) noexcept {
  if (const SysctlFunction function = replacement; function != nullptr) {
    return function(name, namelen, oldp, oldlenp, newp, newlen);
  }
  return systemSysctl(name, namelen, oldp, oldlenp, newp, newlen);
}

std::vector<std::int32_t> processIDs(ProcessTableReader read) { return idsOf(read, nullptr); }

std::vector<std::int32_t> processIDs(ProcessTableReader read,
                                     const std::vector<std::int32_t>& wanted) {
  auto pids = idsOf(read, &wanted);
  std::erase_if(pids, [&](std::int32_t pid) { return std::ranges::count(wanted, pid) == 0; });
  return pids;
}

SysctlFunction replaceSysctl(SysctlFunction function) noexcept {
  const SysctlFunction previous = replacement.exchange(function);
  return previous != nullptr ? previous : &systemSysctl;
}

}  // namespace clientcomm
