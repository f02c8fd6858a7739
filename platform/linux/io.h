#pragma once

#include <fcntl.h>

#include <cerrno>
#include <cstddef>

namespace platform {

inline constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// The result of a system call that gives -1 on failure, as an errno value.
inline int statusOf(int result) { return result < 0 ? errno : 0; }

/// Writes all bytes at the present offset.
/// @return 0, or the system's error.
int writeAll(int fd, const char* bytes, std::size_t size);

}  // namespace platform
