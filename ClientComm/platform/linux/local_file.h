#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/status.h"

namespace clientcomm {

/// What came of opening a file without asking any file system that may not answer.
enum class LocalAccess {
  kOpen,
  kMissing,   ///< There is none, or a link is in its place or on the way.
  kMayBlock,  ///< The file system is a network share, FUSE, or of a type that is not known.
};

struct LocalFile {
  LocalAccess access = LocalAccess::kMissing;
  ScopedFd file;  ///< As by O_PATH, of any kind.
};

/// Opens the file at the absolute `path`, following no link. Where the kernel has no cached names
/// for the whole path, this goes from folder to folder, and leaves a folder for one of another
/// mount only when the mount table has that as a local file system: no request goes to one that may
/// not answer, even when it is mounted meanwhile.
LocalFile openLocalFile(std::string_view path);

/// The file's device and inode, kind and size, from the kernel's memory where the file system may
/// not answer.
/// @param path relative to `folder`; a link is followed. Empty for `folder` itself, of any kind.
std::optional<struct statx> statusWithoutWaiting(int folder, const char* path) noexcept;

/// Reads a local file that was opened as above.
/// @return EINVAL when it is no regular file, EFBIG when it is larger than `limit`.
Status readLocalFile(int file, std::size_t limit, std::string& bytes);

}  // namespace clientcomm
