#pragma once

#include "ClientComm/platform/fixed_text.h"

namespace clientcomm {

/// A key of a record in the runtime folder, in the table of those that this version knows.
using RecordKey = FixedText<23>;

}  // namespace clientcomm
