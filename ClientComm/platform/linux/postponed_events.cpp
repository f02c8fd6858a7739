#include "ClientComm/platform/linux/postponed_events.h"

#include <algorithm>
#include <utility>

namespace clientcomm {

bool PostponedEvents::contains(pid_t pid) const noexcept {
  return std::ranges::any_of(
      events_, [pid](const PostponedEvent& event) { return event.connection.pid == pid; });
}

void PostponedEvents::add(PostponedEvent event) {
  auto place = events_.end();
  if (event.envelope) {
    place = std::ranges::find_if(events_, [&](const PostponedEvent& other) {
      return other.connection.pid == event.connection.pid;
    });
  }
  events_.insert(place, std::move(event));
}

PostponedEvent PostponedEvents::takeFirst() {
  PostponedEvent event = std::move(events_.front());
  events_.pop_front();
  return event;
}

std::optional<PostponedEvent> PostponedEvents::takeAffordable(Clock::time_point now) {
  if (events_.empty()) return std::nullopt;
  const PostponedEvent& first = events_.front();
  const std::size_t size = first.envelope ? first.envelope->bodySize : 0;
  if (!canAfford(first.connection.pid, size, now)) return std::nullopt;
  return takeFirst();
}

bool PostponedEvents::canAfford(pid_t pid, std::size_t size, Clock::time_point now) {
  if (now - second_ >= std::chrono::seconds(1)) spent_.clear();
  const auto spent = spent_.find(pid);
  return spent == spent_.end() || spent->second + size <= kBodyBudget;
}

void PostponedEvents::charge(pid_t pid, std::size_t size, Clock::time_point now) {
  if (spent_.empty()) second_ = now;
  spent_[pid] += size;
}

}  // namespace clientcomm
