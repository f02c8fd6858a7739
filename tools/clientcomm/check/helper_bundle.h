#pragma once

#include <string>

#include "ClientComm/platform/types.h"
#include "tools/clientcomm/check/examination.h"

namespace clientcomm::tool {

/// Checks the bundle of a helper at `path`: in the host, or installed. @return its version.
OptionalString checkHelperBundle(const std::string& path, Examination& examination);

}  // namespace clientcomm::tool
