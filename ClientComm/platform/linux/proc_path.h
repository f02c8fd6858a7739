#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace clientcomm {

/// Where the kernel's process file system is mounted.
inline constexpr char kProcFolder[] = "/proc";

/// A path under `kProcFolder`, built without an allocation. Each file name begins with "/".
class ProcPath {
 public:
  /// The process's own directory, or the file `name` in it.
  static ProcPath ofProcess(pid_t pid, std::string_view name = "") noexcept;

  /// The same of this process, whatever ID the mounted file system gives it.
  static ProcPath ofThisProcess(std::string_view name = "") noexcept;

  /// The link to a file that this process has open: opens, or looks at, that very file.
  static ProcPath ofDescriptor(int descriptor) noexcept;

  /// What the kernel tells of an open descriptor of this process.
  static ProcPath ofDescriptorInfo(int descriptor) noexcept;

  const char* c_str() const noexcept { return text_.data(); }

  std::string_view view() const noexcept { return text_.data(); }

  /// The path relative to an open descriptor of `kProcFolder`.
  const char* belowProcFolder() const noexcept { return text_.data() + sizeof kProcFolder; }

 private:
  ProcPath() noexcept = default;
  ProcPath& operator<<(std::string_view text) noexcept;
  ProcPath& operator<<(int number) noexcept;

  std::array<char, 48> text_ = {};
  std::size_t length_ = 0;
};

}  // namespace clientcomm
