#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "ClientComm/platform/posix/scoped_fd.h"

/// The private folder in which the applications of one user find each other.
namespace clientcomm {

/// Path of the folder "ClientComm" under `runtimeDirectory`.
const std::string& runtimeFolderPath();

/// Opens the folder (O_PATH), after making it where it is missing and `create` is set. It must be a
/// real directory of this user; one that is open to others is closed to them first.
/// @return an invalid descriptor with errno set: ENOENT when missing, ENOTDIR or ELOOP when
///         something else is there, EPERM when it belongs to another user, or may not be made.
ScopedFd openRuntimeFolder(bool create) noexcept;

inline constexpr std::size_t kFileNameLength = 32;

/// The file name for a bundle identifier of any length and content in the folder: `kFileNameLength`
/// lower-case hexadecimal digits, the front half of its SHA-256.
std::string fileNameForIdentifier(std::string_view identifier);

}  // namespace clientcomm
