#pragma once

#include "ClientComm/TQHPTypes.h"

namespace clientcomm::tool {

/// What the status of a call means, as a sentence.
const char* textOf(OSErr status) noexcept;

}  // namespace clientcomm::tool
