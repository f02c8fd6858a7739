#pragma once

#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ClientComm/platform/status.h"

namespace clientcomm {

// The functions on descriptors do not know the path; see `Status::at`.

inline constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// The result of a system call that gives -1 on failure, as an errno value.
inline int statusOf(int result) { return result < 0 ? errno : 0; }

/// The status of a system call that gives -1 on failure, and sets errno.
inline Status fileStatus(std::int64_t result, const char* call,
                         std::string_view path = {}) noexcept {
  return result < 0 ? Status::ofFile(errno, call, path) : Status();
}

/// Whether the errno value `error` is of a failure that says nothing of the file: the system is
/// short of something, or the medium failed. The next try may pass.
inline bool mayPass(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO || error == EINTR;
}

/// read(), repeated when a signal interrupts it.
ssize_t readSome(int fd, void* buffer, std::size_t size) noexcept;

/// Reads from the present offset to the end of the file.
/// @return EFBIG when there are more than `limit` bytes.
Status readAll(int fd, std::size_t limit, std::string& bytes);

/// Writes all bytes at the present offset. Allocates nothing.
Status writeAll(int fd, const void* bytes, std::size_t size) noexcept;

/// Reads the regular file `fd` whole, wherever its offset is.
/// @return EFBIG when it is larger than `limit`, EINVAL when it is no regular file.
Status readRegularFile(int fd, std::size_t limit, std::string& bytes);

/// Removes the file `name` of the open `folder` where that is possible. Only for a file that says
/// nothing to a reader and takes up space: a draft that failed, a record of what is gone.
void discardFile(int folder, const char* name) noexcept;

/// Makes what was written to `fd` survive a power failure, where the file system can.
Status flushData(int fd) noexcept;

}  // namespace clientcomm
