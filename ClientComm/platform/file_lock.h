#pragma once

#include <chrono>
#include <string>

namespace clientcomm {

/// Holds a directory for one process at a time, among processes that ask the same way. The kernel
/// lets go when the holder ends, however it ends; nothing is left on disk.
class DirectoryLock {
 public:
  /// Waits until the directory at `path` is held, at most for `limit`.
  DirectoryLock(const std::string& path, std::chrono::milliseconds limit) noexcept;
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  /// False when the directory could not be opened or the limit passed.
  bool isHeld() const noexcept { return descriptor_ >= 0; }

  /// The open directory, -1 when it is not held. A forked copy of this process that keeps it open
  /// goes on holding the directory should this process end without letting go.
  int descriptor() const noexcept { return descriptor_; }

  /// Lets go of the directory for this process only: it stays held until the last copy of the
  /// descriptor is closed.
  void leaveToCopies() noexcept;

 private:
  int descriptor_ = -1;
};

}  // namespace clientcomm
