#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/portable/property_list/value.h"

namespace platform {

/// Reads the regular file at `path` whole.
/// @return 0, or the system's error; EFBIG when it is larger than `kMaximumSettingsFileSize`,
///         EINVAL when it is no regular file.
int readSettingsFile(const std::string& path, std::string& bytes);

/// Puts a file that holds `bytes` into the place of the one at `path`, in one step: a reader sees
/// the old file or the new one, and a failure leaves the old one whole. Owner and mode are kept; a
/// file that is new gets `modeOfNew`, less the umask. Where `path` is a symbolic link, what it
/// points at is replaced.
/// @return 0, or the system's error.
int replaceFile(const std::string& path, std::string_view bytes, mode_t modeOfNew = 0666);

}  // namespace platform
