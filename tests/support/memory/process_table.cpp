#include "ClientComm/platform/process_table.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

int fail(int error) {
  errno = error;
  return -1;
}

kinfo_proc recordOf(const support::MemoryProcess& process) {
  kinfo_proc record = {};
  record.kp_proc.p_pid = process.pid;
  lastPathComponent(process.executable).copy(record.kp_proc.p_comm, kMaximumCommandLength - 1);
  record.kp_eproc.e_ucred.cr_uid = geteuid();
  return record;
}

int memorySysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp,
                 const void* newp, std::size_t /*newlen*/) noexcept {
  if (name == nullptr || oldlenp == nullptr) return fail(EFAULT);
  if (namelen != 3 || name[0] != kCtlKern || name[1] != kKernProc || name[2] != kKernProcAll) {
    return fail(ENOENT);
  }
  if (newp != nullptr) return fail(EPERM);
  const auto& processes = support::MemorySystem::current().processes.all();
  const std::size_t length = processes.size() * sizeof(kinfo_proc);
  const std::size_t room = std::exchange(*oldlenp, length);
  if (oldp == nullptr) return 0;
  if (room < length) return fail(ENOMEM);
  auto* next = static_cast<char*>(oldp);
  for (const auto& [pid, process] : processes) {
    const kinfo_proc record = recordOf(process);
    std::memcpy(next, &record, sizeof record);
    next += sizeof record;
  }
  return 0;
}

SysctlFunction replacement = nullptr;

struct FreeTable {
  void operator()(kinfo_proc* table) const { std::free(table); }
};

}  // namespace

int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp, const void* newp,
           std::size_t newlen) noexcept {
  const SysctlFunction function = replacement != nullptr ? replacement : &memorySysctl;
  return function(name, namelen, oldp, oldlenp, newp, newlen);
}

std::vector<std::int32_t> processIDs(ProcessTableReader read) {
  kinfo_proc* records = nullptr;
  std::size_t count = 0;
  read(&records, &count);
  const std::unique_ptr<kinfo_proc, FreeTable> table(records);
  std::vector<std::int32_t> pids;
  for (std::size_t i = 0; i < count; ++i) pids.push_back(records[i].kp_proc.p_pid);
  return pids;
}

std::vector<std::int32_t> processIDs(ProcessTableReader read,
                                     const std::vector<std::int32_t>& wanted) {
  auto pids = processIDs(read);
  std::erase_if(pids, [&](std::int32_t pid) { return std::ranges::count(wanted, pid) == 0; });
  return pids;
}

SysctlFunction replaceSysctl(SysctlFunction function) noexcept {
  const SysctlFunction previous = std::exchange(replacement, function);
  return previous != nullptr ? previous : &memorySysctl;
}

}  // namespace clientcomm
