#include "examples/helper/network/retry_delay.h"

#include <algorithm>

namespace sample {

RetryDelay::RetryDelay(const RetrySettings& settings)
    : settings_(settings), bound_(settings.first), random_(std::random_device()()) {}

std::chrono::milliseconds RetryDelay::next() {
  const std::chrono::milliseconds bound = std::min(bound_, settings_.longest);
  bound_ = std::min(bound * 2, settings_.longest);
  std::uniform_int_distribution<std::chrono::milliseconds::rep> jitter(bound.count() / 2,
                                                                       bound.count());
  return std::chrono::milliseconds(jitter(random_));
}

}  // namespace sample
