#pragma once

#include <sys/types.h>

#include <cstddef>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

/// Walks over the IDs of all processes that can be seen, in ascending order, without looking at any
/// of them. Allocates nothing.
class ProcessIDReader {
 public:
  ProcessIDReader() noexcept;

  /// The next process ID; 0 after the last, or when the table cannot be read (`error()` tells).
  pid_t next() noexcept;

  /// 0, or the errno value that ended the walk.
  int error() const noexcept { return error_; }
  /// The directory /proc, for look-ups relative to it.
  int directory() const noexcept { return directory_.get(); }

 private:
  bool fill() noexcept;

  ScopedFd directory_;
  int error_ = 0;
  std::size_t position_ = 0;
  std::size_t filled_ = 0;
  alignas(8) char buffer_[32768];
};

}  // namespace clientcomm
