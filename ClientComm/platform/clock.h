#pragma once

#include <chrono>

/// The time by which the classes measure their waits.
namespace clientcomm {

/// The present time of a clock that never goes back.
std::chrono::steady_clock::time_point currentTime() noexcept;

/// Blocks the calling thread for `duration`.
void sleepFor(std::chrono::milliseconds duration);

}  // namespace clientcomm
