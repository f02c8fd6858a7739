#pragma once

#include <algorithm>
#include <chrono>

#include "ClientComm/platform/clock.h"

namespace clientcomm {

/// How long the waits of one operation may block the host's thread, all together.
class WaitBudget {
 public:
  explicit WaitBudget(std::chrono::milliseconds total) : end_(currentTime() + total) {}
  /// For an operation that tries and never waits.
  static WaitBudget none() { return WaitBudget(std::chrono::milliseconds(0)); }

  /// What is left, never negative.
  std::chrono::milliseconds remaining() const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - currentTime());
    return std::max(left, std::chrono::milliseconds(0));
  }
  std::chrono::milliseconds atMost(std::chrono::milliseconds limit) const {
    return std::min(remaining(), limit);
  }

 private:
  std::chrono::steady_clock::time_point end_;
};

}  // namespace clientcomm
