#pragma once

#include <chrono>
#include <random>

#include "examples/helper/network/network_settings.h"

namespace sample {

/// Exponential back-off with jitter: each failure in a row doubles the delay up to a limit, and the
/// delay is drawn from its upper half, so that a thousand helpers do not come back at once.
class RetryDelay {
 public:
  explicit RetryDelay(const RetrySettings& settings);

  /// Notes a failure. @return how long to wait before the next attempt.
  std::chrono::milliseconds next();

  /// Notes a success: the next failure begins with the shortest delay.
  void reset() noexcept { bound_ = settings_.first; }

 private:
  RetrySettings settings_;
  std::chrono::milliseconds bound_;
  std::mt19937 random_;
};

}  // namespace sample
