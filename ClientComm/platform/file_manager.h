#pragma once

#include <optional>
#include <string>

#include "ClientComm/platform/error.h"
#include "ClientComm/platform/export.h"

/// File operations on paths. Paths are bytes and are passed on as they stand.
namespace clientcomm {

/// Domain of the errors that file operations report; the code is the system's errno value.
inline constexpr const char kFileErrorDomain[] = "FileErrorDomain";

/// Whether anything exists at `path`; a symbolic link counts by its target.
CLIENTCOMM_EXPORT bool fileExistsAtPath(const std::string& path) noexcept;

/// Makes the directory at `path` and, where missing, those above it, with default permissions.
/// @return nothing on success (also when the directory exists), otherwise the error, with the path
///         for the key "FilePath" and the call for "FailedCall": EPERM where a process of the
///         superuser would make it under a directory of another user, or a setuid process behind a
///         link.
CLIENTCOMM_EXPORT std::optional<Error> createDirectoryAtPath(const std::string& path);

}  // namespace clientcomm
