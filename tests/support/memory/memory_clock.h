#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>

namespace support {

/// A clock that the test moves, and the run loop that goes by it.
class MemoryClock {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Task = std::function<void()>;

  Time now() const { return now_; }
  /// Moves the clock without running the loop, as a thread that sleeps.
  void sleep(std::chrono::milliseconds duration) { now_ += duration; }
  /// Runs the loop until `duration` has passed.
  void advance(std::chrono::milliseconds duration);
  /// Runs the loop until `condition` holds, at most for `limit`. @return whether it does.
  bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);

  /// Runs `task` once, as soon as the loop runs.
  void post(Task task) { tasks_.push_back(std::move(task)); }
  /// Runs `task` in every interval from now on. @return a number for `cancel`.
  int schedule(std::chrono::milliseconds interval, Task task);
  void cancel(int number) { timers_.erase(number); }
  bool isScheduled(int number) const { return timers_.contains(number); }
  /// Whether anything has been scheduled yet.
  bool hasScheduled() const { return lastNumber_ > 0; }

 private:
  struct Scheduled {
    Time next;
    std::chrono::milliseconds interval;
    Task task;
  };

  /// Runs what is due first. @return false when nothing is due by `end`.
  bool runOne(Time end);

  Time now_{std::chrono::hours(1)};
  std::deque<Task> tasks_;
  std::map<int, Scheduled> timers_;
  int lastNumber_ = 0;
};

}  // namespace support
