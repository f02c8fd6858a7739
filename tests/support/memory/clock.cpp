#include "ClientComm/platform/clock.h"

#include "tests/support/memory/memory_system.h"

namespace clientcomm {

std::chrono::steady_clock::time_point currentTime() noexcept {
  return support::MemorySystem::current().clock.now();
}

void sleepFor(std::chrono::milliseconds duration) {
  support::MemorySystem::current().clock.sleep(duration);
}

}  // namespace clientcomm
