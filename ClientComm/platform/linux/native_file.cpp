#include "ClientComm/platform/native_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>

#include "ClientComm/platform/posix/io.h"

namespace clientcomm {
namespace {

bool meansNotSupported(int code) {
  return code == EXDEV || code == EINVAL || code == ENOSYS || code == EOPNOTSUPP || code == EPERM;
}

}  // namespace

Status renameWithoutReplacing(int directory, const char* from, const char* to) {
  if (renameat2(directory, from, directory, to, RENAME_NOREPLACE) == 0) return {};
  // A file system or a sandbox without that kind of renaming.
  if (errno != EINVAL && errno != ENOSYS && errno != EPERM) {
    return Status::ofFile(errno, "renameat2", to);
  }
  struct stat status;
  if (fstatat(directory, to, &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return Status::ofFile(EEXIST, "fstatat", to);
  }
  return fileStatus(renameat(directory, from, directory, to), "renameat", to);
}

Status copyInsideKernel(int source, int target, std::int64_t limit, std::int64_t& copied) {
  constexpr std::int64_t kLargestChunk = std::int64_t{1} << 30U;
  const auto size = static_cast<std::size_t>(std::min(limit, kLargestChunk));
  for (;;) {
    const ssize_t count = copy_file_range(source, nullptr, target, nullptr, size, 0);
    copied = std::max<ssize_t>(count, 0);
    if (count >= 0 || meansNotSupported(errno)) return {};
    if (errno != EINTR) return Status::ofFile(errno, "copy_file_range");
  }
}

bool hasExtendedAttributes(const std::string& path) {
  std::array<char, 4096> names;
  const ssize_t length = llistxattr(path.c_str(), names.data(), names.size());
  if (length < 0) return errno == ERANGE;
  std::string_view rest(names.data(), static_cast<std::size_t>(length));
  while (!rest.empty()) {
    const std::string_view name = rest.substr(0, rest.find('\0'));
    if (!name.starts_with("security.")) return true;
    rest.remove_prefix(name.size() + 1);
  }
  return false;
}

}  // namespace clientcomm
