#include "tools/clientcomm/commands.h"

namespace clientcomm::tool {
namespace {

constexpr const Command* kCommands[] = {&kCheckCommand, &kCallCommand, &kNewCommand};

}  // namespace

std::span<const Command* const> commands() { return kCommands; }

}  // namespace clientcomm::tool
