#pragma once

#include <glib.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>

#include "ClientComm/platform/apple_event_transport.h"
#include "ClientComm/platform/glib/scoped_source.h"
#include "ClientComm/platform/linux/call_watchers.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/idle_connections.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/postponed_events.h"

namespace clientcomm {

/// Serves the connections of senders. From each it receives one event, decides who sent it, has it
/// handled, and answers. A connection on which nothing has been received is kept as idle; an event
/// of a caller that has used up its budget is postponed.
///
/// A handler may do anything, so that this object may be gone after each call that serves.
class EventServer {
 public:
  using Clock = std::chrono::steady_clock;

  /// @param source polls the idle connections; see `IdleConnections`.
  /// @param highestVersion of the wire that is served.
  EventServer(const ScopedSource& source, AppleEventTransport::Receiver receiver,
              WireVersion highestVersion);
  ~EventServer();
  EventServer(const EventServer&) = delete;
  EventServer& operator=(const EventServer&) = delete;

  /// Takes over a new connection, and serves it when its event is there or about to be.
  void take(PeerConnection connection);

  /// Serves one of the connections that were taken before and are due.
  /// @return whether there was one.
  bool serveDue(Clock::time_point now);

  /// Serves the first postponed event, whatever its caller's budget. @return whether there was one.
  bool serveFirstPostponed();

  /// Gives up one connection for the sake of its descriptors. @return whether there was one.
  bool giveUpOne();

  /// Has the source poll for `condition` on the idle connections.
  void poll(GIOCondition condition) { idle_.poll(condition); }

  /// The process that waits for the reply to the event being handled; 0 when none does.
  pid_t waitingPeer() const noexcept { return waitingPeer_; }

  bool hasPostponed() const noexcept { return !postponed_.isEmpty(); }
  /// When the oldest idle connection is due; nothing when there is none.
  std::optional<Clock::time_point> firstDeadline() const;

 private:
  /// Whether to wait a moment for the first packet of a connection.
  enum class FirstWait { kNone, kShort };
  /// Whether an event waits while its caller has used up its budget.
  enum class Budget { kApplies, kIgnored };

  void serveEarlierOf(pid_t pid);
  void keepIdle(PeerConnection connection);
  void dismiss(PeerConnection connection);
  bool serve(PeerConnection& connection, FirstWait wait);
  bool serveUnread(PeerConnection& connection, FirstWait wait, Budget budget);
  void postpone(PostponedEvent event);
  void servePostponed(PostponedEvent event, Budget budget);
  ReceiveResult receiveFirst(int socket, FirstWait wait, Envelope& envelope) const;
  void watch(PeerConnection& connection, const Envelope& envelope);
  void refuse(const PeerConnection& connection, const Envelope& envelope, PeerKind caller);
  void refuseVersion(int socket, PacketKind kind) const;
  void handle(const PeerConnection& connection, const Envelope& envelope,
              const ProcessSerialNumber& caller);

  AppleEventTransport::Receiver receiver_;
  WireVersion highestVersion_;
  IdleConnections idle_;
  PostponedEvents postponed_;
  CallWatchers watchers_;
  pid_t waitingPeer_ = 0;
  /// False once the server is gone; a handler may close the endpoint while it is being served.
  std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

}  // namespace clientcomm
