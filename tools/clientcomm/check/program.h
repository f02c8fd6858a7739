#pragma once

#include "ClientComm/platform/bundle.h"
#include "tools/clientcomm/check/finding.h"

namespace clientcomm::tool {

/// A host is executed where it is, with the user's LD_LIBRARY_PATH. A helper is launched without
/// it, from the install folder.
enum class ProgramKind { kHost, kHelper };

/// Checks whether the executable of the bundle can be executed: the file, its architecture, its
/// libraries.
void checkProgram(const Bundle& bundle, ProgramKind kind, Findings& findings);

/// Checks whether programs below `path` can be executed, by the flags of the mount.
void checkMountOfPrograms(const std::string& path, Findings& findings);

}  // namespace clientcomm::tool
