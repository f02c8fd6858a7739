#pragma once

#include <string>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

/// Reports from the main loop how the process that runs `executable` has ended, where `input`
/// brings its wait status; nothing where `input` ends without.
void reportEndOf(std::string executable, ScopedFd input);

}  // namespace clientcomm
