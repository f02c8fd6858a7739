#pragma once

#include <string>

#include "tools/clientcomm/command.h"

namespace clientcomm::tool {

/// The help of the program: a line for each command.
std::string programHelp();

std::string helpOf(const Command& command);

}  // namespace clientcomm::tool
