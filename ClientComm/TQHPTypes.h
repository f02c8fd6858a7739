#pragma once

#include "platform/export.h"
#include "platform/types.h"

/// Signed 16-bit status of an operation that talks to the helper: 0 success; 10 the helper's server
/// is marked closed and nothing was sent; 1 the helper was not running and could not be launched;
/// any other value is the send's own error (see platform/types.h).
using platform::OSErr;

/// nil, or a string; see platform/types.h.
using platform::OptionalString;
