#include "tests/stress/clock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<time_t> wallClockOffset{0};

// Where the kernel has a call of its own for seconds of 64 bits, `timespec` here is the one it
// fills.
#ifdef SYS_clock_gettime64
constexpr long kGetTime = SYS_clock_gettime64;
#else
constexpr long kGetTime = SYS_clock_gettime;
#endif

}  // namespace

namespace stress {

void setWallClockOffset(std::chrono::seconds offset) { wallClockOffset = offset.count(); }

}  // namespace stress

// Takes the place of the C library's own for the whole program, its libraries included.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const int result = static_cast<int>(syscall(kGetTime, clock, time));
  const bool isWallClock = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
  if (result == 0 && isWallClock) time->tv_sec += wallClockOffset;
  return result;
}
