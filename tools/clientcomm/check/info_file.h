#pragma once

#include <string>

#include "tools/clientcomm/check/finding.h"

namespace clientcomm::tool {

/// Checks whether the Info.plist of the bundle at `bundlePath` can be read, by the application
/// itself and by others. @return whether it holds a dictionary.
bool checkInfoFile(const std::string& bundlePath, Findings& findings);

}  // namespace clientcomm::tool
