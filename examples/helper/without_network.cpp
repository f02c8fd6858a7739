#include "examples/helper/network.h"

namespace sample {

std::unique_ptr<Network> makeNetwork(const NetworkFolders& /*folders*/,
                                     const NetworkEvents& /*events*/) {
  return nullptr;
}

}  // namespace sample
