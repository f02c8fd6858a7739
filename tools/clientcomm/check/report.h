#pragma once

#include "tools/clientcomm/check/examination.h"
#include "tools/clientcomm/output.h"

namespace clientcomm::tool {

/// Prints what was found, in the output's format.
void report(const Examination& examination, Output& output);

}  // namespace clientcomm::tool
