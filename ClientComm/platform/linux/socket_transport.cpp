#include "ClientComm/platform/linux/socket_transport.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>
#include <thread>
#include <utility>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/peer_process.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_token.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kMaximumFileNames = 256;

constexpr std::size_t kMaximumHandshakes = 256;

// How long the process counts on being remembered where it cannot repeat the handshake.
constexpr std::chrono::minutes kLongestHandshake{1};

/// The end of a wait; never, where there is no limit.
class Deadline {
 public:
  Deadline(AESendMode sendMode, std::int32_t ticks) {
    if (ticks == kNoTimeOut) return;
    milliseconds limit = milliseconds(std::int64_t{ticks} * 1000 / kTicksPerSecond);
    if (ticks == kAEDefaultTimeout) limit = sendMode == kAENoReply ? kHandOverLimit : kReplyLimit;
    end_ = Clock::now() + limit;
  }

  bool hasPassed() const { return end_ && Clock::now() >= *end_; }

  /// What is left, at most `atMost`; 0 when it has passed.
  milliseconds remaining(milliseconds atMost) const {
    if (!end_) return atMost;
    const auto left = std::chrono::ceil<milliseconds>(*end_ - Clock::now());
    return std::clamp(left, milliseconds(0), atMost);
  }

 private:
  std::optional<Clock::time_point> end_;
};

OSErr statusOfConnectError(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
      return errAEEventNotPermitted;
    case ENOMEM:
    case ENOBUFS:
    case EMFILE:
    case ENFILE:
      return memFullErr;
    default:
      return procNotFound;
  }
}

OSErr statusOfOpenError(int error) {
  const bool isShort = error == EMFILE || error == ENFILE || error == ENOMEM;
  return isShort ? memFullErr : errAEEventNotPermitted;
}

/// Waits for room in the target's queue and connects. @return 0 or an errno value.
int connectWhenThereIsRoom(int socket, const SocketPath& path, const Deadline& deadline) {
  fcntl(socket, F_SETFL, 0);  // blocking from here on, for at most the send time-out
  for (;;) {
    const milliseconds wait = deadline.remaining(kLivenessInterval);
    if (wait == milliseconds(0)) return EAGAIN;
    const timeval limit{wait.count() / 1000, wait.count() % 1000 * 1000};
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (connect(socket, path.address(), SocketPath::size()) == 0) return 0;
    if (errno != EAGAIN && errno != EINTR) return errno;
  }
}

/// A connection to a target, with the process that answers at the other end.
struct Connection {
  ScopedFd socket;
  pid_t peer = 0;  ///< 0 where it is in a process-ID namespace that is not seen from here.

  bool peerExists() const {
    if (peer > 0) return kill(peer, 0) == 0 || errno != ESRCH;
    return !PeerProcess(peer, socket.get()).hasExited();
  }
};

OSErr connectTo(const std::string& fileName, const Deadline& deadline, Connection& connection) {
  const SocketPath path(fileName);
  if (!path.isValid()) return statusOfConnectError(errno);
  connection.socket.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!connection.socket.isValid()) return memFullErr;
  int error = connect(connection.socket.get(), path.address(), SocketPath::size()) == 0 ? 0 : errno;
  if (error == EAGAIN || error == EINTR) {
    error = connectWhenThereIsRoom(connection.socket.get(), path, deadline);
    if (error == EAGAIN) return errAETimeout;
  }
  if (error != 0) return statusOfConnectError(error);
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(connection.socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return connectionInvalid;
  }
  if (peer.uid != geteuid()) return errAEEventNotPermitted;
  // A child that the application forked may hold its socket open after it has ended.
  connection.peer = peer.pid;
  return connection.peerExists() ? noErr : procNotFound;
}

/// Connects, and waits for an application that this process has only just launched.
OSErr reach(const std::string& identifier, const std::string& fileName, const Deadline& deadline,
            Connection& connection) {
  for (;;) {
    const OSErr status = connectTo(fileName, deadline, connection);
    if (status == noErr) noteReached(identifier);
    if (status != procNotFound || !isStillLaunching(identifier)) return status;
    if (deadline.hasPassed()) return status;
    std::this_thread::sleep_for(kTryInterval);
  }
}

OSErr awaitReply(const Connection& connection, const Deadline& deadline, WireVersion highestVersion,
                 AppleEventDescriptor& reply) {
  for (;;) {
    const milliseconds wait = deadline.remaining(kLivenessInterval);
    if (wait == milliseconds(0)) return errAETimeout;
    pollfd entry{connection.socket.get(), POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(wait.count())) <= 0) {
      if (!connection.peerExists()) return connectionInvalid;
      continue;
    }
    Packet packet;
    const ReceiveResult result = receivePacket(connection.socket.get(), packet, highestVersion);
    if (result == ReceiveResult::kNothingYet) continue;
    if (result != ReceiveResult::kPacket || packet.kind != PacketKind::kReply) {
      return connectionInvalid;
    }
    if (packet.status == noErr) reply = std::move(packet.descriptor);
    return packet.status;
  }
}

}  // namespace

/// An event on its way over a connection.
struct SocketTransport::Delivery {
  pid_t target;
  int socket;
  PacketKind kind;
  WireVersion version;
  const AppleEventDescriptor& event;
  std::size_t size;  ///< Of the flattened event.
};

OSErr SocketTransport::send(const AppleEventDescriptor& event, AppleEventDescriptor& reply,
                            AESendMode sendMode, std::int32_t timeOutInTicks) {
  if (endpoint_) endpoint_->verify();
  const AppleEventDescriptor& target = event.target();
  if (target.descriptorType() != typeApplicationBundleID) return paramErr;
  if (target.data().empty()) return procNotFound;
  const auto size = flattenedSize(event);
  if (!size) return memFullErr;

  const Deadline deadline(sendMode, timeOutInTicks);
  Connection connection;
  lastRecipient_ = 0;
  OSErr status = reach(target.data(), fileNameFor(target.data()), deadline, connection);
  if (status != noErr) return status;
  const bool wantsReply = sendMode == kAEWaitReply;
  if (wantsReply && connection.peer == getpid()) return sendToSelf(event, reply);
  // A peer that waits for this process's answer cannot give one. Peers that are not seen from here
  // all have the ID 0.
  const bool isWaiting = endpoint_ && endpoint_->waitingPeer() == connection.peer;
  if (wantsReply && isWaiting && connection.peer > 0) return errAETimeout;
  const auto version = versionFor(connection.socket.get());
  if (!version) return errAEEventNotHandled;
  const PacketKind kind = wantsReply ? PacketKind::kEventWantingReply : PacketKind::kEvent;
  const Delivery delivery{connection.peer, connection.socket.get(), kind, *version, event, *size};
  status = deliver(delivery);
  while (status == errAETimeout && !deadline.hasPassed()) {
    std::this_thread::sleep_for(kTryInterval);
    status = deliver(delivery);
  }
  if (status == noErr) lastRecipient_ = static_cast<std::uint64_t>(connection.peer);
  if (status != noErr || !wantsReply) return status;
  return awaitReply(connection, deadline, highestVersion_, reply);
}

// Pass the executable's fd, so that the receiver can identify a caller that has exited by then or
// that it cannot see. Passing it adds 50 % to a send, so do it once a second per receiver; later
// events carry the token sent with it.
OSErr SocketTransport::deliver(const Delivery& delivery) {
  bool isNew = false;
  const std::uint32_t token = processToken(isNew);
  if (isNew) handshakes_.clear();
  const auto send = [&](int executable) {
    return sendPacketOfSize(delivery.size, delivery.socket,
                            {delivery.kind, delivery.version, noErr, executable, token},
                            delivery.event);
  };
  if (token != 0 && isKnownTo(delivery.target, kHandshakeValidity)) return send(-1);
  const ScopedFd executable(::open(ProcPath::ofThisProcess("/exe").c_str(), O_PATH | O_CLOEXEC));
  // Without it the event may be thrown away, which no status would tell.
  if (!executable.isValid()) return statusOfOpenError(errno);
  const OSErr status = send(executable.get());
  // So many of the user's descriptors may be on their way that the system takes no more.
  if (status == errAETimeout && token != 0 && isKnownTo(delivery.target, kLongestHandshake)) {
    return send(-1);
  }
  if (status == noErr) noteHandshake(delivery.target);
  return status;
}

// Every endpoint serves the lowest version, so a sender that knows no other need not ask.
std::optional<WireVersion> SocketTransport::versionFor(int socket) const noexcept {
  if (highestVersion_ == kLowestWireVersion) return kLowestWireVersion;
  const auto offered = versionOfEndpoint(socket);
  return offered ? std::optional(std::min(*offered, highestVersion_)) : std::nullopt;
}

// Receivers in process-ID namespaces that are not seen from here all have the ID 0, so that none of
// them is known to remember this process.
void SocketTransport::noteHandshake(pid_t target) {
  if (target <= 0) return;
  if (handshakes_.size() >= kMaximumHandshakes) handshakes_.clear();
  handshakes_[target] = Clock::now();
}

bool SocketTransport::isKnownTo(pid_t target, std::chrono::seconds validity) const {
  const auto found = handshakes_.find(target);
  return found != handshakes_.end() && Clock::now() - found->second < validity;
}

// The process's own main loop cannot answer while it waits here.
OSErr SocketTransport::sendToSelf(const AppleEventDescriptor& event, AppleEventDescriptor& reply) {
  AppleEventDescriptor received = event;
  AppleEventDescriptor address;
  if (const auto psn = serialNumberForPeer(getpid(), -1)) {
    address = {typeProcessSerialNumber,
               std::string(reinterpret_cast<const char*>(&*psn), sizeof *psn)};
  }
  received.setAttributeDescriptor(std::move(address), keyAddressAttr);
  AppleEventDescriptor answer = AppleEventDescriptor::appleEvent(
      event.eventClass(), kAnswerEventID, {}, event.returnID(), event.transactionID());
  const Receiver receiver = receiver_;
  const OSErr status = receiver ? receiver(std::move(received), answer) : errAEEventNotHandled;
  if (status != noErr) return status;
  if (!flattenedSize(answer)) return memFullErr;
  reply = std::move(answer);
  return noErr;
}

OSErr SocketTransport::startReceiving(Receiver receiver) {
  const OptionalString identifier = Bundle::mainBundle().bundleIdentifier();
  if (!identifier || identifier->empty()) return paramErr;
  receiver_ = std::move(receiver);
  endpoint_ = std::make_unique<SocketEndpoint>(*identifier, receiver_, highestVersion_);
  return endpoint_->open();
}

void SocketTransport::stopReceiving() {
  endpoint_.reset();
  receiver_ = nullptr;
}

const std::string& SocketTransport::fileNameFor(const std::string& identifier) {
  const auto found = fileNames_.find(identifier);
  if (found != fileNames_.end()) return found->second;
  if (fileNames_.size() >= kMaximumFileNames) fileNames_.clear();
  return fileNames_.emplace(identifier, fileNameForIdentifier(identifier)).first->second;
}

std::unique_ptr<AppleEventTransport> makeSystemTransport() {
  return std::make_unique<SocketTransport>();
}

}  // namespace clientcomm
