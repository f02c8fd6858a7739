#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace clientcomm {

enum class TimerPrecision {
  kExact,
  /// At the moment at which other programs' timers of whole seconds fire as well, so that the
  /// processor wakes once for all of them. The first firing is up to a second early for that.
  kShared,
};

/// A timer on the current thread's run loop. It fires only while that loop runs.
class Timer {
 public:
  using Callback = std::function<void(Timer&)>;

  /// Schedules a repeating timer on the current thread's run loop; the first firing is one interval
  /// from now. The callback must not throw.
  /// @param precision `kShared` is for intervals of whole seconds.
  static std::unique_ptr<Timer> scheduledTimer(std::chrono::milliseconds interval,
                                               Callback callback,
                                               TimerPrecision precision = TimerPrecision::kExact);
  /// A timer that is on no run loop and never fires by itself.
  Timer();
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Takes the timer off its run loop for good. May be called from its own callback.
  void invalidate() noexcept;
  bool isValid() const noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace clientcomm
