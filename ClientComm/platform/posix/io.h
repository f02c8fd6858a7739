#pragma once

#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <string>

namespace clientcomm {

inline constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// The result of a system call that gives -1 on failure, as an errno value.
inline int statusOf(int result) { return result < 0 ? errno : 0; }

/// Whether the errno value `error` is of a failure that says nothing of the file: the system is
/// short of something, or the medium failed. The next try may pass.
inline bool mayPass(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO || error == EINTR;
}

/// read(), repeated when a signal interrupts it.
ssize_t readSome(int fd, void* buffer, std::size_t size) noexcept;

/// Reads from the present offset to the end of the file.
/// @return 0, or the system's error; EFBIG when there are more than `limit` bytes.
int readAll(int fd, std::size_t limit, std::string& bytes);

/// Writes all bytes at the present offset.
/// @return 0, or the system's error.
int writeAll(int fd, const void* bytes, std::size_t size) noexcept;

/// Reads the regular file `fd` whole, wherever its offset is.
/// @return 0, or the system's error; EFBIG when it is larger than `limit`, EINVAL when it is no
///         regular file.
int readRegularFile(int fd, std::size_t limit, std::string& bytes);

/// Makes what was written to `fd` survive a power failure, where the file system can.
/// @return 0, or the system's error.
int flushData(int fd);

}  // namespace clientcomm
