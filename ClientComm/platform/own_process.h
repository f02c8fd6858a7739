#pragma once

#include <string>

/// What the system knows about this process and its executable.
namespace clientcomm {

/// Full path of the executable that this process runs, also when the file has been removed since;
/// without symbolic links. Empty when the system cannot tell.
std::string ownExecutablePath();

/// Absolute path of the executable as the launcher spelled it, symbolic links included. Empty when
/// the system cannot tell or the launcher gave a relative path.
std::string ownLaunchPath();

/// Whether the executable gives this process rights that its caller lacks: setuid, setgid or file
/// capabilities.
bool isSetuidProcess() noexcept;

}  // namespace clientcomm
