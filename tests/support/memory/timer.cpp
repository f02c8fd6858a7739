#include "ClientComm/platform/timer.h"

#include <algorithm>
#include <utility>

#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

// As with GLib.
constexpr std::chrono::milliseconds kLongestInterval{0xFFFFFFFF};

support::MemoryClock& memoryClock() { return support::MemorySystem::current().clock; }

}  // namespace

struct Timer::State {
  int number = 0;  ///< Of the schedule; 0 for none.
};

// There are no other programs to share a moment with.
std::unique_ptr<Timer> Timer::scheduledTimer(std::chrono::milliseconds interval, Callback callback,
                                             TimerPrecision /*precision*/) {
  auto timer = std::make_unique<Timer>();
  timer->state_->number = memoryClock().schedule(
      std::clamp(interval, std::chrono::milliseconds(1), kLongestInterval),
      [&timer = *timer, callback = std::move(callback)] { callback(timer); });
  return timer;
}

Timer::Timer() : state_(std::make_unique<State>()) {}

Timer::~Timer() { invalidate(); }

void Timer::invalidate() noexcept { memoryClock().cancel(state_->number); }

bool Timer::isValid() const noexcept { return memoryClock().isScheduled(state_->number); }

}  // namespace clientcomm
