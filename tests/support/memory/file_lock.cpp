#include "ClientComm/platform/file_lock.h"

#include <cerrno>
#include <map>
#include <utility>

#include "ClientComm/platform/clock.h"
#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

// The folders that are held, by the number that takes the place of a descriptor.
std::map<int, std::string>& held() {
  static auto* const all = new std::map<int, std::string>;
  return *all;
}

bool isHeldAlready(const std::string& path) {
  for (const auto& [number, folder] : held()) {
    if (folder == path) return true;
  }
  return false;
}

}  // namespace

DirectoryLock::DirectoryLock(const std::string& path, std::chrono::milliseconds limit) noexcept {
  const std::string folder = stringByAppendingPathComponent(path, "");
  if (!support::MemorySystem::current().files.isFolder(folder)) {
    status_ = Status(kLockErrorDomain, ENOENT, "open", path);
    return;
  }
  if (isHeldAlready(folder)) {
    // There is one thread, so that the holder cannot let go during the wait.
    sleepFor(limit);
    status_ = Status(kLockErrorDomain, ETIMEDOUT, "flock", path);
    return;
  }
  descriptor_ = held().empty() ? 0 : held().rbegin()->first + 1;
  held().emplace(descriptor_, folder);
}

DirectoryLock::~DirectoryLock() { held().erase(descriptor_); }

// No process is forked here, so there are no copies.
void DirectoryLock::leaveToCopies() noexcept { held().erase(std::exchange(descriptor_, -1)); }

}  // namespace clientcomm
