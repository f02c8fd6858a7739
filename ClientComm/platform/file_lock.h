#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "ClientComm/platform/status.h"

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

  /// False when the directory could not be opened or the limit passed; see `status`.
  bool isHeld() const noexcept { return descriptor_ >= 0; }

  /// The open directory, -1 when it is not held. A forked copy of this process that keeps it open
  /// goes on holding the directory should this process end without letting go.
  int descriptor() const noexcept { return descriptor_; }

  /// Why the directory is not held: ETIMEDOUT when the limit passed.
  const Status& status() const noexcept { return status_; }

  /// The same, handed over.
  Status takeStatus() noexcept { return std::move(status_); }

  /// Lets go of the directory for this process only: it stays held until the last copy of the
  /// descriptor is closed.
  void leaveToCopies() noexcept;

 private:
  Status status_;
  int descriptor_ = -1;
};

}  // namespace clientcomm
