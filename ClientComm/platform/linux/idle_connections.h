#pragma once

#include <glib.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <optional>

#include "ClientComm/platform/glib/scoped_source.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm {

/// The connection of one sender, with the process at its other end.
struct PeerConnection {
  ScopedFd socket;
  pid_t pid = 0;
};

/// Connections on which nothing has been received yet. The endpoint's source polls them.
class IdleConnections {
 public:
  using Clock = std::chrono::steady_clock;

  /// @param source outlives this object, or is destroyed without its descriptors being used again.
  explicit IdleConnections(const ScopedSource& source) : source_(source) {}

  bool isEmpty() const noexcept { return entries_.empty(); }
  bool isFull() const noexcept { return entries_.size() >= kMaximumIdleConnections; }
  std::size_t size() const noexcept { return entries_.size(); }

  void add(PeerConnection connection);

  /// Takes out the oldest; there must be one.
  PeerConnection takeOldest() { return take(entries_.begin()); }

  /// Takes out a connection that was readable when the source was polled last, or that has been
  /// idle for too long.
  std::optional<PeerConnection> takeDue(Clock::time_point now);

  /// Takes out the oldest connection of the process `pid` that is readable now.
  std::optional<PeerConnection> takeReadableOf(pid_t pid);

  /// Has the source poll for `condition` on every connection.
  void poll(GIOCondition condition);

  /// When the oldest has been idle for too long; there must be one.
  Clock::time_point firstDeadline() const { return entries_.front().deadline; }

 private:
  struct Entry {
    PeerConnection connection;
    Clock::time_point deadline;
    void* tag;  ///< Of the source's poll entry.
  };
  using Entries = std::list<Entry>;

  PeerConnection take(Entries::iterator entry);

  const ScopedSource& source_;
  Entries entries_;
};

}  // namespace clientcomm
