#include "tests/support/memory/memory_clock.h"

#include <algorithm>
#include <utility>

namespace support {

int MemoryClock::schedule(std::chrono::milliseconds interval, Task task) {
  timers_.emplace(++lastNumber_, Scheduled{now_ + interval, interval, std::move(task)});
  return lastNumber_;
}

bool MemoryClock::runOne(Time end) {
  if (!tasks_.empty()) {
    const Task task = std::move(tasks_.front());
    tasks_.pop_front();
    task();
    return true;
  }
  const auto first = std::min_element(
      timers_.begin(), timers_.end(),
      [](const auto& one, const auto& other) { return one.second.next < other.second.next; });
  if (first == timers_.end() || first->second.next > end) return false;
  now_ = std::max(now_, first->second.next);
  first->second.next = now_ + first->second.interval;
  // A task may cancel its own timer.
  const Task task = first->second.task;
  task();
  return true;
}

void MemoryClock::advance(std::chrono::milliseconds duration) {
  runUntil([] { return false; }, duration);
}

bool MemoryClock::runUntil(const std::function<bool()>& condition,
                           std::chrono::milliseconds limit) {
  const Time end = now_ + limit;
  bool holds = condition();
  while (!holds && runOne(end)) holds = condition();
  if (!holds) now_ = std::max(now_, end);
  return holds;
}

}  // namespace support
