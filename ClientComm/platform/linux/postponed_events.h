#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <optional>
#include <unordered_map>

#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/idle_connections.h"
#include "ClientComm/platform/process_manager.h"

namespace clientcomm {

/// How much of long bodies one caller has decoded within a second while others wait; at least one
/// body, whatever its size.
inline constexpr std::size_t kBodyBudget = std::size_t{64} << 20;

/// How many events are postponed at most; with a further one, the first is served.
inline constexpr std::size_t kMaximumPostponedEvents = 64;

/// An event that waits, and whatever its caller sent after it.
struct PostponedEvent {
  PeerConnection connection;
  /// What was received; nothing where the connection has not been read yet.
  std::optional<Envelope> envelope;
  ProcessSerialNumber sender{};  ///< With an envelope.
};

/// Events of callers that have used up their budget. They wait until other callers have been served
/// or a second has passed; each caller's events stay in order.
class PostponedEvents {
 public:
  using Clock = std::chrono::steady_clock;

  bool isEmpty() const noexcept { return events_.empty(); }
  bool isFull() const noexcept { return events_.size() >= kMaximumPostponedEvents; }
  /// Whether the process `pid` has an event here, behind which its later ones have to wait.
  bool contains(pid_t pid) const noexcept;

  /// Adds an event that was received before those of its caller that have not been read, or after
  /// all others.
  void add(PostponedEvent event);
  /// Takes out the first; there must be one.
  PostponedEvent takeFirst();
  /// Takes out the first, where its caller's budget suffices for it.
  std::optional<PostponedEvent> takeAffordable(Clock::time_point now);

  /// Whether the budget of the caller `pid` suffices for a long body of `size` bytes.
  bool canAfford(pid_t pid, std::size_t size, Clock::time_point now);
  /// Counts a long body of `size` bytes of the caller `pid`, which has been served at `now`.
  void charge(pid_t pid, std::size_t size, Clock::time_point now);

 private:
  std::list<PostponedEvent> events_;
  std::unordered_map<pid_t, std::size_t> spent_;  ///< In the second after `second_`.
  Clock::time_point second_;  ///< When the first body since was served, however long that took.
};

}  // namespace clientcomm
