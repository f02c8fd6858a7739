#pragma once

/// @file
/// What several classes of the system share: keys and statuses.

#include "ClientComm/platform/export.h"
#include "ClientComm/platform/types.h"

/// Info dictionary key of the host: name of the helper's bundle, without ".app".
inline constexpr const char kHelperAppName[] = "Helepr App name";
/// Info dictionary key of the host: the folder to install the helper in.
inline constexpr const char kHelperDefaultInstallPath[] = "Helper loaction path";

/// Signed 16-bit status of an operation that talks to the helper: 0 success; 10 the helper's server
/// is marked closed and nothing was sent; 1 the helper was not running and could not be launched;
/// any other value is the send's own error (see ClientComm/platform/types.h).
using clientcomm::OSErr;

namespace clientcomm {

/// Status of an operation that sent nothing because the helper's server is marked closed.
inline constexpr OSErr kHelperServerClosed = 10;
/// Status of an operation whose helper was not running and could not be launched.
inline constexpr OSErr kHelperNotLaunched = 1;

}  // namespace clientcomm
