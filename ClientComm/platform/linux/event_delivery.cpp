#include "ClientComm/platform/linux/event_delivery.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/peer_process.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_token.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kMaximumFileNames = 256;

constexpr std::size_t kMaximumHandshakes = 256;

// How long the process counts on being remembered where it cannot repeat the handshake.
constexpr std::chrono::minutes kLongestHandshake{1};

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
    if (::connect(socket, path.address(), SocketPath::size()) == 0) return 0;
    if (errno != EAGAIN && errno != EINTR) return errno;
  }
}

DiagnosticCause causeOf(OSErr status) noexcept {
  switch (status) {
    case procNotFound:
      return DiagnosticCause::kTargetNotRunning;
    case errAEEventNotPermitted:
      return DiagnosticCause::kTargetNotPermitted;
    case errAETimeout:
      return DiagnosticCause::kTargetBusy;
    case memFullErr:
      return DiagnosticCause::kNoResourcesToSend;
    case errAEEventNotHandled:
      return DiagnosticCause::kVersionUnsupported;
    default:
      return DiagnosticCause::kConnectionLost;
  }
}

OSErr failed(OSErr status, DeliveryFailure& failure, const char* call, int error) noexcept {
  failure = {call, error, std::nullopt};
  return status;
}

OSErr connectTo(const std::string& fileName, const Deadline& deadline, Connection& connection,
                DeliveryFailure& failure) {
  const SocketPath path(fileName);
  if (!path.isValid()) return failed(statusOfConnectError(errno), failure, "open", errno);
  connection.socket.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int socket = connection.socket.get();
  if (!connection.socket.isValid()) return failed(memFullErr, failure, "socket", errno);
  int error = ::connect(socket, path.address(), SocketPath::size()) == 0 ? 0 : errno;
  if (error == EAGAIN || error == EINTR) {
    error = connectWhenThereIsRoom(socket, path, deadline);
    if (error == EAGAIN) return failed(errAETimeout, failure, "connect", error);
  }
  if (error != 0) return failed(statusOfConnectError(error), failure, "connect", error);
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return failed(connectionInvalid, failure, "getsockopt", errno);
  }
  if (peer.uid != geteuid()) return failed(errAEEventNotPermitted, failure, "geteuid", EPERM);
  // A child that the application forked may hold its socket open after it has ended.
  connection.peer = peer.pid;
  return connection.peerExists() ? noErr : failed(procNotFound, failure, "kill", ESRCH);
}

DiagnosticCause causeOfRefusal(OSErr status) noexcept {
  if (status == errAEEventNotPermitted) return DiagnosticCause::kCallerNotIdentified;
  const bool isUnhandled = status == errAEEventNotHandled;
  return isUnhandled ? DiagnosticCause::kCallNotHandled : DiagnosticCause::kCallRefused;
}

}  // namespace

Deadline::Deadline(AESendMode sendMode, std::int32_t ticks) {
  if (ticks == kNoTimeOut) return;
  milliseconds limit = milliseconds(std::int64_t{ticks} * 1000 / kTicksPerSecond);
  if (ticks == kAEDefaultTimeout) limit = sendMode == kAENoReply ? kHandOverLimit : kReplyLimit;
  end_ = Clock::now() + limit;
}

milliseconds Deadline::remaining(milliseconds atMost) const {
  if (!end_) return atMost;
  const auto left = std::chrono::ceil<milliseconds>(*end_ - Clock::now());
  return std::clamp(left, milliseconds(0), atMost);
}

bool Connection::peerExists() const {
  if (peer > 0) return kill(peer, 0) == 0 || errno != ESRCH;
  return !PeerProcess(peer, socket.get()).hasExited();
}

OSErr EventDelivery::connect(const std::string& identifier, const Deadline& deadline,
                             Connection& connection) {
  return connectTo(fileNameFor(identifier), deadline, connection, failure_);
}

// Pass the executable's fd, so that the receiver can identify a caller that has exited by then or
// that it cannot see. Passing it adds 50 % to a send, so do it once a second per receiver; later
// events carry the token sent with it.
OSErr EventDelivery::handOver(const Connection& connection, PacketKind kind,
                              const AppleEventDescriptor& event, std::size_t size) {
  const int socket = connection.socket.get();
  const auto version = versionFor(socket);
  if (!version) {
    return failed(errAEEventNotHandled, failure_, "versionOfEndpoint", 0);
  }
  bool isNew = false;
  const std::uint32_t token = processToken(isNew);
  if (isNew) handshakes_.clear();
  const auto send = [&](int executable) {
    const OSErr status =
        sendPacketOfSize(size, socket, {kind, *version, noErr, executable, token}, event);
    return status == noErr ? noErr : failed(status, failure_, "sendmsg", errno);
  };
  if (token != 0 && isKnownTo(connection.peer, kHandshakeValidity)) return send(-1);
  const ScopedFd executable(::open(ProcPath::ofThisProcess("/exe").c_str(), O_PATH | O_CLOEXEC));
  // Without it the event may be thrown away, which no status would tell.
  if (!executable.isValid()) {
    failure_ = {"open", errno, DiagnosticCause::kOwnProgramUnreadable};
    return statusOfOpenError(failure_.error);
  }
  const OSErr status = send(executable.get());
  // So many of the user's descriptors may be on their way that the system takes no more.
  if (status == errAETimeout && token != 0 && isKnownTo(connection.peer, kLongestHandshake)) {
    return send(-1);
  }
  if (status == noErr) noteHandshake(connection.peer);
  return status;
}

// Every endpoint serves the lowest version, so a sender that knows no other need not ask.
std::optional<WireVersion> EventDelivery::versionFor(int socket) const noexcept {
  if (highestVersion_ == kLowestWireVersion) return kLowestWireVersion;
  const auto offered = versionOfEndpoint(socket);
  return offered ? std::optional(std::min(*offered, highestVersion_)) : std::nullopt;
}

// Receivers in process-ID namespaces that are not seen from here all have the ID 0, so that none of
// them is known to remember this process.
void EventDelivery::noteHandshake(pid_t target) {
  if (target <= 0) return;
  if (handshakes_.size() >= kMaximumHandshakes) handshakes_.clear();
  handshakes_[target] = std::chrono::steady_clock::now();
}

bool EventDelivery::isKnownTo(pid_t target, std::chrono::seconds validity) const {
  const auto found = handshakes_.find(target);
  return found != handshakes_.end() && std::chrono::steady_clock::now() - found->second < validity;
}

const std::string& EventDelivery::fileNameFor(const std::string& identifier) {
  const auto found = fileNames_.find(identifier);
  if (found != fileNames_.end()) return found->second;
  if (fileNames_.size() >= kMaximumFileNames) fileNames_.clear();
  return fileNames_.emplace(identifier, fileNameForIdentifier(identifier)).first->second;
}

OSErr checkEvent(const AppleEventDescriptor& event, std::size_t& size) {
  const AppleEventDescriptor& target = event.target();
  const auto refuse = [&](DiagnosticCause cause, OSErr status) {
    reportStatus(cause, target.data(), "checkEvent", status);
    return status;
  };
  if (target.descriptorType() != typeApplicationBundleID) {
    return refuse(DiagnosticCause::kCallNotBuilt, paramErr);
  }
  if (target.data().empty()) return refuse(DiagnosticCause::kTargetMissing, procNotFound);
  const auto flattened = flattenedSize(event);
  if (!flattened) return refuse(DiagnosticCause::kCallTooLarge, memFullErr);
  size = *flattened;
  return noErr;
}

void EventDelivery::reportFailure(const std::string& identifier, OSErr status) const noexcept {
  report(failure_.cause.value_or(causeOf(status)), identifier, failure_.call, failure_.error);
}

OSErr reportLost(const std::string& identifier, const char* call) noexcept {
  reportStatus(DiagnosticCause::kConnectionLost, identifier, call, connectionInvalid);
  return connectionInvalid;
}

std::optional<OSErr> takeReply(const Connection& connection, const std::string& identifier,
                               WireVersion highestVersion, AppleEventDescriptor& reply) {
  Packet packet;
  const ReceiveResult result = receivePacket(connection.socket.get(), packet, highestVersion);
  if (result == ReceiveResult::kNothingYet) return std::nullopt;
  if (result == ReceiveResult::kClosed) return reportLost(identifier, "recvmsg");
  if (result != ReceiveResult::kPacket || packet.kind != PacketKind::kReply) {
    report(DiagnosticCause::kReplyMalformed, identifier);
    return connectionInvalid;
  }
  if (packet.status == noErr) {
    reply = std::move(packet.descriptor);
  } else {
    reportStatus(causeOfRefusal(packet.status), identifier, "", packet.status);
  }
  return packet.status;
}

}  // namespace clientcomm
