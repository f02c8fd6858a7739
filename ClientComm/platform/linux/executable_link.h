#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <climits>
#include <cstddef>
#include <string_view>

#include "ClientComm/platform/linux/proc_path.h"

namespace clientcomm {

/// Follows the path of a removed file, where the kernel gives one.
inline constexpr std::string_view kRemovedMark = " (deleted)";

/// A link under /proc and the path that it gives, read without an allocation.
class ExecutableLink {
 public:
  static ExecutableLink ofProcess(pid_t pid) noexcept {
    return ExecutableLink(ProcPath::ofProcess(pid, "/exe"));
  }
  /// Fails with EINVAL where the descriptor is not one of a plain file.
  static ExecutableLink ofDescriptor(int descriptor) noexcept;

  /// 0, or the errno value of the reading.
  int error() const noexcept { return error_; }
  /// The path as the kernel gives it, with its mark where the file was removed.
  std::string_view target() const noexcept { return {target_.data(), length_}; }
  /// Whether the kernel does not tell this process the path: the other one is not dumpable, for
  /// instance.
  bool isWithheld() const noexcept;
  /// Whether the path ends like that of a removed file; see `isRemoved`.
  bool isMarkedAsRemoved() const noexcept;
  /// Whether the file was removed; one whose own name looks like the kernel's mark was not, unless
  /// it is on a file system that may not answer.
  bool isRemoved() const;
  /// Whether the file is the one with this status.
  bool leadsTo(const struct statx& file) const noexcept;

 private:
  explicit ExecutableLink(const ProcPath& link) noexcept;

  ProcPath link_;
  int error_ = 0;
  std::size_t length_ = 0;
  std::array<char, PATH_MAX> target_;
};

}  // namespace clientcomm
