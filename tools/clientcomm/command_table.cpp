#include "tools/clientcomm/commands.h"

namespace clientcomm::tool {
namespace {

constexpr const Command* kCommands[] = {&kCheckCommand, &kPsCommand, &kCallCommand, &kWatchCommand,
                                        &kNewCommand};

}  // namespace

std::span<const Command* const> commands() { return kCommands; }

}  // namespace clientcomm::tool
