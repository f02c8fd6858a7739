#pragma once

#include <sys/types.h>

#include <string>

namespace clientcomm {

/// Makes the directory at `path`, without trailing slashes, and those above it, where missing.
/// @param mode of each new directory, less the umask.
/// @return 0, also when the directory exists; ENOTDIR or the system's error otherwise.
int makeDirectories(const std::string& path, mode_t mode);

}  // namespace clientcomm
