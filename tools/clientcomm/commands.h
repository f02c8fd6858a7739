#pragma once

#include "tools/clientcomm/command.h"

namespace clientcomm::tool {

extern const Command kCallCommand;
extern const Command kPsCommand;
extern const Command kWatchCommand;
extern const Command kCheckCommand;
extern const Command kNewCommand;

}  // namespace clientcomm::tool
