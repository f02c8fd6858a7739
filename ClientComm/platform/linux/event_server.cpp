#include "ClientComm/platform/linux/event_server.h"

#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

#include "ClientComm/platform/linux/access_proof.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

// How long a new connection may stay silent before it counts as idle.
constexpr std::chrono::microseconds kFirstPacketWait{20};

// With this many idle connections or more, a new one counts as idle at once.
constexpr std::size_t kFewIdleConnections = 4;

// Of the answer to what is not decoded.
constexpr std::int16_t kNoReturnID = -1;

// Calls are served by the bundle identifier of their caller.
bool isServed(const PeerIdentity& caller) {
  return caller.kind == PeerKind::kApplication && bundleIdentifierOfProcess(caller.psn);
}

AppleEventDescriptor answerTo(std::int16_t returnID, std::int32_t transactionID) {
  return AppleEventDescriptor::appleEvent(kCallEventClass, kAnswerEventID, {}, returnID,
                                          transactionID);
}

bool isSilent(int socket) noexcept {
  char byte = 0;
  return recv(socket, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

/// @param version of the event that is answered.
void sendReply(int socket, WireVersion version, OSErr status, const AppleEventDescriptor& reply) {
  constexpr std::uint32_t kNoToken = 0;
  const OSErr sent = sendPacket(socket, PacketKind::kReply, status, reply, -1, kNoToken, version);
  // The sender learns why there is no reply.
  if (sent == noErr) return;
  reportStatus(DiagnosticCause::kReplyNotSent, "", "sendPacket", sent);
  sendPacket(socket, PacketKind::kReply, sent, {}, -1, kNoToken, version);
}

}  // namespace

EventServer::EventServer(const ScopedSource& source, AppleEventTransport::Receiver receiver,
                         WireVersion highestVersion)
    : receiver_(std::move(receiver)), highestVersion_(highestVersion), idle_(source) {}

EventServer::~EventServer() { *isAlive_ = false; }

void EventServer::take(PeerConnection connection) {
  const auto isAlive = isAlive_;
  serveEarlierOf(connection.pid);
  if (!*isAlive) return;
  // Skip the wait when many connections are idle; each wait costs a context switch.
  const FirstWait wait = idle_.size() < kFewIdleConnections ? FirstWait::kShort : FirstWait::kNone;
  if (!serve(connection, wait) && *isAlive) keepIdle(std::move(connection));
}

bool EventServer::serveDue(Clock::time_point now) {
  if (auto event = postponed_.takeAffordable(now)) {
    servePostponed(*std::move(event), Budget::kApplies);
    return true;
  }
  auto connection = idle_.takeDue(now);
  if (!connection) return false;
  dismiss(*std::move(connection));
  return true;
}

bool EventServer::serveFirstPostponed() {
  if (postponed_.isEmpty()) return false;
  servePostponed(postponed_.takeFirst(), Budget::kIgnored);
  return true;
}

bool EventServer::giveUpOne() {
  if (watchers_.dropAll() || serveFirstPostponed()) return true;
  if (idle_.isEmpty()) return false;
  dismiss(idle_.takeOldest());
  return true;
}

std::optional<EventServer::Clock::time_point> EventServer::firstDeadline() const {
  return idle_.isEmpty() ? std::nullopt : std::optional(idle_.firstDeadline());
}

// A sender whose connection was idle when it was accepted, and which has sent since, may be
// connected again with a later event already. The earlier one goes first.
void EventServer::serveEarlierOf(pid_t pid) {
  const auto isAlive = isAlive_;
  while (*isAlive) {
    auto connection = idle_.takeReadableOf(pid);
    if (!connection) return;
    serve(*connection, FirstWait::kNone);
  }
}

// What the peer has sent up to now counts, since it was told so; what it sends from now on is
// refused on its own side. The server may be gone after this.
void EventServer::dismiss(PeerConnection connection) {
  const int socket = connection.socket.get();
  if (isReporting() && isSilent(socket)) {
    reportProcess(DiagnosticCause::kCallerSilent, connection.pid);
  }
  shutdown(socket, SHUT_RD);
  serve(connection, FirstWait::kNone);
}

void EventServer::keepIdle(PeerConnection connection) {
  const auto isAlive = isAlive_;
  if (idle_.isFull()) dismiss(idle_.takeOldest());
  if (*isAlive) idle_.add(std::move(connection));
}

/// Serves the event on `connection`, or postpones it and takes the connection over.
/// @return false when nothing has been received on it yet.
bool EventServer::serve(PeerConnection& connection, FirstWait wait) {
  if (!postponed_.isEmpty() && postponed_.contains(connection.pid)) {
    postpone({std::move(connection), std::nullopt, {}});
    return true;
  }
  return serveUnread(connection, wait, Budget::kApplies);
}

// A sender sends as soon as it is connected, so its packet is there or about to arrive. Waiting for
// the next iteration of the main loop would cost both another wake-up.
ReceiveResult EventServer::receiveFirst(int socket, FirstWait wait, Envelope& envelope) const {
  ReceiveResult result = receiveEnvelope(socket, envelope, highestVersion_);
  if (wait == FirstWait::kNone || result != ReceiveResult::kNothingYet) return result;
  const auto end = Clock::now() + kFirstPacketWait;
  do {
    sched_yield();
    result = receiveEnvelope(socket, envelope, highestVersion_);
  } while (result == ReceiveResult::kNothingYet && Clock::now() < end);
  return result;
}

bool EventServer::serveUnread(PeerConnection& connection, FirstWait wait, Budget budget) {
  const int socket = connection.socket.get();
  Envelope envelope;
  const ReceiveResult result = receiveFirst(socket, wait, envelope);
  if (result == ReceiveResult::kNothingYet) return false;
  if (result == ReceiveResult::kUnknownVersion) {
    refuseVersion(socket, envelope.kind);
    reportProcess(DiagnosticCause::kPacketUnsupported, connection.pid);
  }
  if (result == ReceiveResult::kMalformed) {
    reportProcess(DiagnosticCause::kPacketMalformed, connection.pid);
  }
  if (result != ReceiveResult::kPacket || envelope.kind == PacketKind::kReply) return true;
  if (envelope.kind == PacketKind::kWatch) {
    watch(connection, envelope);
    return true;
  }
  const PeerIdentity caller =
      identityOfPeer(connection.pid, socket, envelope.executable.get(), envelope.token);
  if (!isServed(caller)) {
    refuse(connection, envelope, caller.kind);
    const bool isUnknown = caller.kind == PeerKind::kUnknown;
    reportProcess(
        isUnknown ? DiagnosticCause::kCallerUnknown : DiagnosticCause::kCallerWithoutIdentifier,
        connection.pid);
  } else if (!envelope.longBody.isValid() || budget == Budget::kIgnored ||
             postponed_.canAfford(connection.pid, envelope.bodySize, Clock::now())) {
    handle(connection, envelope, caller.psn);
  } else {
    postpone({std::move(connection), std::move(envelope), caller.psn});
  }
  return true;
}

void EventServer::postpone(PostponedEvent event) {
  const auto isAlive = isAlive_;
  if (postponed_.isFull()) servePostponed(postponed_.takeFirst(), Budget::kIgnored);
  if (*isAlive) postponed_.add(std::move(event));
}

void EventServer::servePostponed(PostponedEvent event, Budget budget) {
  if (event.envelope) {
    handle(event.connection, *event.envelope, event.sender);
    return;
  }
  const auto isAlive = isAlive_;
  if (!serveUnread(event.connection, FirstWait::kNone, budget) && *isAlive) {
    keepIdle(std::move(event.connection));
  }
}

// The body of the packet shows that its sender may look into this process.
void EventServer::watch(PeerConnection& connection, const Envelope& envelope) {
  const std::string proof = accessProof(ProcPath::ofThisProcess(kAccessProofFile));
  const bool isPermitted = !proof.empty() && envelope.shortBody == proof;
  sendReply(connection.socket.get(), envelope.version, isPermitted ? noErr : errAEEventNotPermitted,
            answerTo(kNoReturnID, 0));
  if (isPermitted) {
    watchers_.add(std::move(connection.socket), envelope.version);
  } else {
    reportProcess(DiagnosticCause::kWatcherRefused, connection.pid);
  }
}

// The handler of calls serves no caller without identity: its result is nil. So the body of such an
// event, which may be large, is not decoded.
void EventServer::refuse(const PeerConnection& connection, const Envelope& envelope,
                         PeerKind caller) {
  const bool wantsReply = envelope.kind == PacketKind::kEventWantingReply;
  const AppleEventDescriptor unread;
  WatchedCall(watchers_, unread, {connection.pid, nullptr, wantsReply})
      .finish(watchers_, errAEEventNotPermitted, unread);
  if (!wantsReply) return;
  const OSErr status = caller == PeerKind::kUnknown ? errAEEventNotPermitted : noErr;
  sendReply(connection.socket.get(), envelope.version, status, answerTo(kNoReturnID, 0));
}

// A sender asks for a version that is served, and reads every version up to its own.
void EventServer::refuseVersion(int socket, PacketKind kind) const {
  if (kind != PacketKind::kEventWantingReply) return;
  sendReply(socket, highestVersion_, errAEEventNotHandled, {});
}

void EventServer::handle(const PeerConnection& connection, const Envelope& envelope,
                         const ProcessSerialNumber& caller) {
  auto event = decodeBody(envelope);
  if (!event) {
    reportProcess(DiagnosticCause::kPacketMalformed, connection.pid);
    return;
  }
  // The sender's address in the message is overwritten.
  event->setAttributeDescriptor(
      {typeProcessSerialNumber, std::string(reinterpret_cast<const char*>(&caller), sizeof caller)},
      keyAddressAttr);
  AppleEventDescriptor reply = answerTo(event->returnID(), event->transactionID());
  const AppleEventTransport::Receiver receiver = receiver_;
  const auto isAlive = isAlive_;
  const bool wantsReply = envelope.kind == PacketKind::kEventWantingReply;
  WatchedCall watched(watchers_, *event, {connection.pid, &caller, wantsReply});
  waitingPeer_ = wantsReply ? connection.pid : 0;
  const OSErr status = receiver(*std::move(event), reply);
  if (*isAlive) waitingPeer_ = 0;
  if (*isAlive && envelope.longBody.isValid()) {
    postponed_.charge(connection.pid, envelope.bodySize, Clock::now());
  }
  if (wantsReply) sendReply(connection.socket.get(), envelope.version, status, reply);
  if (*isAlive) watched.finish(watchers_, status, reply);
}

}  // namespace clientcomm
