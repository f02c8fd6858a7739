#include "platform/linux/socket_endpoint.h"

#include <glib.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include "platform/linux/check_in.h"
#include "platform/linux/peer_identity.h"

namespace platform {
namespace {

// After drawing, before idle work. GTK resizes at G_PRIORITY_HIGH_IDLE + 10 and draws at + 20, its
// text views lay lines out at + 25, and Clutter draws at + 50; G_PRIORITY_DEFAULT_IDLE is + 100. At
// the default priority, busy senders would leave a window no frame.
constexpr int kCallPriority = G_PRIORITY_HIGH_IDLE + 60;

// How long events are taken in one turn of the main loop before other sources have theirs: a
// quarter of a frame at 60 Hz.
constexpr std::chrono::milliseconds kTurnLimit{4};

constexpr std::chrono::milliseconds kVerifyInterval = std::chrono::seconds(1);

// How often an endpoint that sends nothing looks after its name: a helper may do nothing but wait
// for calls, and nobody reaches it to have it look.
constexpr std::chrono::milliseconds kIdleVerifyInterval = std::chrono::seconds(5);

// Pause of accepting when the process is out of descriptors: the listening socket stays readable
// meanwhile, and without a pause the main loop would spin.
constexpr std::chrono::milliseconds kAcceptPause{100};

// How long a new connection may stay silent before it counts as idle.
constexpr std::chrono::microseconds kFirstPacketWait{20};

// With this many idle connections or more, a new one counts as idle at once.
constexpr std::size_t kFewIdleConnections = 4;

constexpr AEEventID kAnswer = fourCharCode("ansr");

struct EndpointSource {
  GSource base;
  SocketEndpoint* endpoint;
};

gint64 microseconds(std::chrono::steady_clock::time_point time) {
  // GLib's monotonic time is the steady clock's.
  return std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
}

// A sender sends as soon as it is connected, so that its packet is there or about to be. To go
// round the main loop for it would cost both of them another wake-up.
ReceiveResult receiveFirstEnvelope(int socket, Envelope& envelope) {
  ReceiveResult result = receiveEnvelope(socket, envelope);
  if (result != ReceiveResult::kNothingYet) return result;
  const auto end = std::chrono::steady_clock::now() + kFirstPacketWait;
  do {
    sched_yield();
    result = receiveEnvelope(socket, envelope);
  } while (result == ReceiveResult::kNothingYet && std::chrono::steady_clock::now() < end);
  return result;
}

// Calls are served by the bundle identifier of their caller.
bool isServed(const PeerIdentity& caller) {
  return caller.kind == PeerKind::kApplication && bundleIdentifierOfProcess(caller.psn);
}

AppleEventDescriptor answerTo(std::int16_t returnID, std::int32_t transactionID) {
  return AppleEventDescriptor::appleEvent(fourCharCode("aevt"), kAnswer, {}, returnID,
                                          transactionID);
}

void sendReply(int socket, OSErr status, const AppleEventDescriptor& reply) {
  if (sendPacket(socket, PacketKind::kReply, status, reply, -1) != noErr) {
    sendPacket(socket, PacketKind::kReply, memFullErr, {}, -1);
  }
}

}  // namespace

SocketEndpoint::SocketEndpoint(const std::string& identifier,
                               AppleEventTransport::Receiver receiver)
    : name_(identifier), receiver_(std::move(receiver)) {
  attachSource();
}

SocketEndpoint::~SocketEndpoint() {
  *isAlive_ = false;
  source_.reset();
}

void SocketEndpoint::attachSource() {
  static GSourceFuncs functions = {nullptr, nullptr, &SocketEndpoint::dispatch,
                                   nullptr, nullptr, nullptr};
  source_.reset(g_source_new(&functions, sizeof(EndpointSource)));
  reinterpret_cast<EndpointSource*>(source_.get())->endpoint = this;
  g_source_set_name(source_.get(), "ClientComm endpoint");
  g_source_set_priority(source_.get(), kCallPriority);
  // Otherwise GLib takes the source's descriptors off its poll for each dispatch and puts them back
  // after it, and wakes itself up for both.
  g_source_set_can_recurse(source_.get(), TRUE);
  g_source_attach(source_.get(), g_main_context_get_thread_default());
}

OSErr SocketEndpoint::open() {
  const OSErr status = takeName();
  lastVerified_ = Clock::now();
  scheduleWakeUp();
  return status;
}

OSErr SocketEndpoint::takeName() {
  if (const OSErr status = name_.take(listener_); status != noErr) return status;
  listenerTag_ = g_source_add_unix_fd(source_.get(), listener_.get(), G_IO_IN);
  checkIn();
  return noErr;
}

void SocketEndpoint::verify() {
  const auto now = Clock::now();
  if (now - lastVerified_ < kVerifyInterval) return;
  lastVerified_ = now;
  if (name_.leadsHere() || (listener_.isValid() && name_.leadsElsewhere())) return;
  // Left to the main loop: events that wait at the old socket have to be handled first.
  mustReopen_ = true;
  scheduleWakeUp();
}

int SocketEndpoint::dispatch(GSource* source, GSourceFunc /*callback*/, void* /*data*/) noexcept {
  SocketEndpoint* const endpoint = reinterpret_cast<EndpointSource*>(source)->endpoint;
  const auto isAlive = endpoint->isAlive_;
  if (endpoint->isServing_) {
    endpoint->listen(false);
    return G_SOURCE_CONTINUE;
  }
  endpoint->isServing_ = true;
  try {
    endpoint->takeEvents();
  } catch (...) {
    // Out of memory: the event is dropped, which its sender sees as a closed connection.
  }
  if (!*isAlive) return G_SOURCE_REMOVE;
  endpoint->isServing_ = false;
  if (!endpoint->isListening_) endpoint->listen(true);
  endpoint->scheduleWakeUp();
  return G_SOURCE_CONTINUE;
}

// A handler may run a main loop of its own. Events wait until it returns, each handled whole before
// the next, and that loop must not be woken by them again and again.
void SocketEndpoint::listen(bool isListening) {
  isListening_ = isListening;
  const auto condition = isListening ? G_IO_IN : static_cast<GIOCondition>(0);
  if (listenerTag_ != nullptr && !isPaused_) {
    g_source_modify_unix_fd(source_.get(), listenerTag_, condition);
  }
  idle_.poll(condition);
  if (!isListening) g_source_set_ready_time(source_.get(), -1);
}

void SocketEndpoint::takeEvents() {
  const auto isAlive = isAlive_;
  if (isPaused_) resumeAccepting();
  auto now = Clock::now();
  if (now - lastVerified_ >= kIdleVerifyInterval) verify();
  for (const auto end = now + kTurnLimit; *isAlive && now < end; now = Clock::now()) {
    if (serveNext(now)) continue;
    if (*isAlive && mustReopen_ && !isPaused_) reopen();
    return;
  }
}

/// @return whether to look for another event at once.
bool SocketEndpoint::serveNext(Clock::time_point now) {
  const auto isAlive = isAlive_;
  if (serveAccepted(now) || (*isAlive && acceptOne())) return true;
  if (!*isAlive || postponed_.isEmpty()) return false;
  servePostponed(postponed_.takeFirst(), Budget::kIgnored);
  return true;
}

void SocketEndpoint::reopen() {
  mustReopen_ = false;
  if (listenerTag_ != nullptr) g_source_remove_unix_fd(source_.get(), listenerTag_);
  listenerTag_ = nullptr;
  listener_.reset();
  open();
}

/// @return whether one of the connections that were accepted before was due.
bool SocketEndpoint::serveAccepted(Clock::time_point now) {
  if (auto event = postponed_.takeAffordable(now)) {
    servePostponed(*std::move(event), Budget::kApplies);
    return true;
  }
  auto connection = idle_.takeDue(now);
  if (connection) dismiss(*std::move(connection));
  return connection.has_value();
}

// A sender whose connection was idle when it was accepted, and which has sent since, may be
// connected again with a later event already. The earlier one goes first.
void SocketEndpoint::serveEarlierOf(pid_t pid) {
  const auto isAlive = isAlive_;
  while (*isAlive) {
    auto connection = idle_.takeReadableOf(pid);
    if (!connection) return;
    serve(*connection, FirstWait::kNone);
  }
}

// What the peer has sent up to now counts, since it was told so; what it sends from now on is
// refused on its own side. The endpoint may be gone after this.
void SocketEndpoint::dismiss(PeerConnection connection) {
  shutdown(connection.socket.get(), SHUT_RD);
  serve(connection, FirstWait::kNone);
}

void SocketEndpoint::keepIdle(PeerConnection connection) {
  const auto isAlive = isAlive_;
  if (idle_.isFull()) dismiss(idle_.takeOldest());
  if (*isAlive) idle_.add(std::move(connection));
}

/// @return whether another connection may be waiting.
bool SocketEndpoint::acceptOne() {
  if (!listener_.isValid() || isPaused_) return false;
  PeerConnection connection{ScopedFd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)), 0};
  const int socket = connection.socket.get();
  if (socket < 0) return handleAcceptError(errno);
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return true;
  if (peer.uid != geteuid()) return true;
  connection.pid = peer.pid;
  const auto isAlive = isAlive_;
  serveEarlierOf(peer.pid);
  if (!*isAlive) return false;
  // Skip the wait when many connections are idle; each wait costs a context switch.
  const bool isServed =
      serve(connection, idle_.size() < kFewIdleConnections ? FirstWait::kShort : FirstWait::kNone);
  if (!*isAlive) return false;
  if (!isServed) keepIdle(std::move(connection));
  return *isAlive;
}

/// @return whether to try again at once.
bool SocketEndpoint::handleAcceptError(int error) {
  if (error == EINTR || error == ECONNABORTED) return true;
  if (error == EAGAIN || error == EWOULDBLOCK) return false;
  const auto isAlive = isAlive_;
  if (!postponed_.isEmpty()) {
    servePostponed(postponed_.takeFirst(), Budget::kIgnored);
    return *isAlive;
  }
  if (!idle_.isEmpty()) {
    dismiss(idle_.takeOldest());
    return *isAlive;
  }
  pauseAccepting();
  return false;
}

void SocketEndpoint::pauseAccepting() {
  isPaused_ = true;
  g_source_modify_unix_fd(source_.get(), listenerTag_, static_cast<GIOCondition>(0));
}

void SocketEndpoint::resumeAccepting() {
  isPaused_ = false;
  if (listenerTag_ != nullptr) g_source_modify_unix_fd(source_.get(), listenerTag_, G_IO_IN);
}

/// Serves the event on `connection`, or postpones it and takes the connection over.
/// @return false when nothing has been received on it yet.
bool SocketEndpoint::serve(PeerConnection& connection, FirstWait wait) {
  if (!postponed_.isEmpty() && postponed_.contains(connection.pid)) {
    postpone({std::move(connection), std::nullopt, {}});
    return true;
  }
  return serveUnread(connection, wait, Budget::kApplies);
}

bool SocketEndpoint::serveUnread(PeerConnection& connection, FirstWait wait, Budget budget) {
  const int socket = connection.socket.get();
  Envelope envelope;
  const ReceiveResult result = wait == FirstWait::kShort ? receiveFirstEnvelope(socket, envelope)
                                                         : receiveEnvelope(socket, envelope);
  if (result == ReceiveResult::kNothingYet) return false;
  if (result != ReceiveResult::kPacket || envelope.kind == PacketKind::kReply) return true;
  const PeerIdentity caller =
      identityOfPeer(connection.pid, socket, envelope.executable.get(), envelope.token);
  if (!isServed(caller)) {
    refuse(socket, envelope, caller.kind);
  } else if (!envelope.longBody.isValid() || budget == Budget::kIgnored ||
             postponed_.canAfford(connection.pid, envelope.bodySize, Clock::now())) {
    handle(connection, envelope, caller.psn);
  } else {
    postpone({std::move(connection), std::move(envelope), caller.psn});
  }
  return true;
}

void SocketEndpoint::postpone(PostponedEvent event) {
  const auto isAlive = isAlive_;
  if (postponed_.isFull()) servePostponed(postponed_.takeFirst(), Budget::kIgnored);
  if (*isAlive) postponed_.add(std::move(event));
}

void SocketEndpoint::servePostponed(PostponedEvent event, Budget budget) {
  if (event.envelope) {
    handle(event.connection, *event.envelope, event.sender);
    return;
  }
  const auto isAlive = isAlive_;
  if (!serveUnread(event.connection, FirstWait::kNone, budget) && *isAlive) {
    keepIdle(std::move(event.connection));
  }
}

// The handler of calls serves no caller without identity: its result is nil. So the body of such an
// event, which may be large, is not decoded.
void SocketEndpoint::refuse(int socket, const Envelope& envelope, PeerKind caller) {
  constexpr std::int16_t kNoReturnID = -1;
  if (envelope.kind != PacketKind::kEventWantingReply) return;
  const OSErr status = caller == PeerKind::kUnknown ? errAEEventNotPermitted : noErr;
  sendReply(socket, status, answerTo(kNoReturnID, 0));
}

void SocketEndpoint::handle(const PeerConnection& connection, const Envelope& envelope,
                            const ProcessSerialNumber& caller) {
  auto event = decodeBody(envelope);
  if (!event) return;
  // The sender's address in the message is overwritten.
  event->setAttributeDescriptor(
      {typeProcessSerialNumber, std::string(reinterpret_cast<const char*>(&caller), sizeof caller)},
      keyAddressAttr);
  AppleEventDescriptor reply = answerTo(event->returnID(), event->transactionID());
  const AppleEventTransport::Receiver receiver = receiver_;
  const auto isAlive = isAlive_;
  const OSErr status = receiver(*std::move(event), reply);
  if (*isAlive && envelope.longBody.isValid()) {
    postponed_.charge(connection.pid, envelope.bodySize, Clock::now());
  }
  if (envelope.kind == PacketKind::kEventWantingReply) {
    sendReply(connection.socket.get(), status, reply);
  }
}

void SocketEndpoint::scheduleWakeUp() {
  auto time = lastVerified_ + kIdleVerifyInterval;
  if (!idle_.isEmpty()) time = std::min(time, idle_.firstDeadline());
  if (isPaused_) time = std::min(time, Clock::now() + kAcceptPause);
  const bool isDue = (mustReopen_ && !isPaused_) || !postponed_.isEmpty();
  g_source_set_ready_time(source_.get(), isDue ? 0 : microseconds(time));
}

}  // namespace platform
