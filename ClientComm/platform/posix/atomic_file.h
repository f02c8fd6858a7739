#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "ClientComm/platform/status.h"

namespace clientcomm {

/// Replaces the regular file at `path`, or makes it, by a rename: a reader sees the old file or the
/// new one, and a failure or a kill leaves the old one whole. Owner and mode are kept, or the
/// write fails; a file that is new gets `modeOfNew`, less the umask. The inode is another one, and
/// on some file systems the entry moves within its folder's listing.
Status replaceFile(const std::string& path, std::string_view bytes, mode_t modeOfNew);

}  // namespace clientcomm
