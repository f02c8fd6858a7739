#pragma once

#include <string>
#include <string_view>

#include "ClientComm/platform/posix/scoped_fd.h"

/// The private folder in which the applications of one user find each other.
namespace clientcomm {

/// Path of the folder `kRuntimeFolderName` under `runtimeDirectory`.
const std::string& runtimeFolderPath();

/// What to do about a folder that does not exist.
enum class IfMissing { kFail, kCreate };

/// Opens the folder (O_PATH). It must be a real directory of this user; one that is open to others
/// is closed to them first.
/// @return an invalid descriptor with errno set: ENOENT when missing, ENOTDIR or ELOOP when
///         something else is there, EPERM when it belongs to another user, or may not be made.
ScopedFd openRuntimeFolder(IfMissing ifMissing) noexcept;

/// The file name of `kFileNameLength` characters in the folder for a bundle identifier, or a bundle
/// path, of any length and content.
std::string fileNameForIdentifier(std::string_view identifier);

}  // namespace clientcomm
