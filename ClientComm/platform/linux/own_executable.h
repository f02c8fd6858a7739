#pragma once

#include <string>

namespace clientcomm {

/// Full path of the executable that this process runs, also when the file has been removed since.
std::string ownExecutablePath();

}  // namespace clientcomm
