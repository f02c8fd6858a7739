#include "ClientComm/platform/clock.h"

#include <thread>

namespace clientcomm {

std::chrono::steady_clock::time_point currentTime() noexcept {
  return std::chrono::steady_clock::now();
}

void sleepFor(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }

}  // namespace clientcomm
