#include "examples/helper/network.h"

namespace sample {

std::unique_ptr<Network> makeNetwork(const NetworkFolders& /*folders*/) { return nullptr; }

}  // namespace sample
