#include "ClientComm/platform/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

DirectoryLock::DirectoryLock(const std::string& path, std::chrono::milliseconds limit) noexcept {
  ScopedFd directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.isValid()) {
    status_ = {kLockErrorDomain, errno, "open", path};
    return;
  }
  // A blocking flock() knows no time limit, and one cut short by a signal is not the library's to
  // arrange in a host's process.
  constexpr timespec kPause = {0, 5'000'000};
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
    const bool mayComeFree = errno == EWOULDBLOCK || errno == EINTR;
    if (!mayComeFree || std::chrono::steady_clock::now() >= deadline) {
      status_ = {kLockErrorDomain, mayComeFree ? ETIMEDOUT : errno, "flock", path};
      return;
    }
    nanosleep(&kPause, nullptr);
  }
  descriptor_ = directory.release();
}

DirectoryLock::~DirectoryLock() {
  if (descriptor_ < 0) return;
  // Closing alone would leave the directory held by a child that the host forked meanwhile.
  flock(descriptor_, LOCK_UN);
  close(descriptor_);
}

void DirectoryLock::leaveToCopies() noexcept {
  if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
}

}  // namespace clientcomm
