#include "ClientComm/platform/shared_object.h"

#include <utility>
#include <vector>

namespace clientcomm {
namespace {

std::vector<std::function<void()>>& destructions() {
  static auto* const all = new std::vector<std::function<void()>>;
  return *all;
}

}  // namespace

void SharedObjects::destroyAll() {
  // An object that is destroyed may use, and so make, another.
  while (!destructions().empty()) {
    const auto destroy = std::move(destructions().back());
    destructions().pop_back();
    destroy();
  }
}

void SharedObjects::add(std::function<void()> destroy) {
  destructions().push_back(std::move(destroy));
}

}  // namespace clientcomm
