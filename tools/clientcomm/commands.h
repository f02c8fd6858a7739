#pragma once

#include "tools/clientcomm/command.h"

namespace clientcomm::tool {

extern const Command kCallCommand;

}  // namespace clientcomm::tool
