#pragma once

#include <sys/types.h>

#include <string>

#include "ClientComm/platform/status.h"

namespace clientcomm {

/// Makes the directory at `path`, without trailing slashes, and those above it, where missing.
/// @param mode of each new directory, less the umask.
/// @return success also when the directory exists.
Status makeDirectories(const std::string& path, mode_t mode);

}  // namespace clientcomm
