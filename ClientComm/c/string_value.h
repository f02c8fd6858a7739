#pragma once

#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// Hands `value` to the caller as a string of its own; NULL for nil.
clientcomm_string* newString(OptionalString value);

}  // namespace clientcomm
