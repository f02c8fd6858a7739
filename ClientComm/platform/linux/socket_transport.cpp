#include "ClientComm/platform/linux/socket_transport.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/socket_query.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

using std::chrono::milliseconds;

/// Connects, and waits for an application that this process has only just launched.
OSErr reach(EventDelivery& delivery, const std::string& identifier, const Deadline& deadline,
            Connection& connection) {
  for (;;) {
    const OSErr status = delivery.connect(identifier, deadline, connection);
    if (status == noErr) noteReached(identifier);
    if (status != procNotFound || !isStillLaunching(identifier)) return status;
    if (deadline.hasPassed()) return status;
    std::this_thread::sleep_for(kTryInterval);
  }
}

OSErr awaitReply(const Connection& connection, const std::string& identifier,
                 const Deadline& deadline, WireVersion highestVersion,
                 AppleEventDescriptor& reply) {
  for (;;) {
    const milliseconds wait = deadline.remaining(kLivenessInterval);
    if (wait == milliseconds(0)) {
      reportStatus(DiagnosticCause::kReplyLate, identifier, "poll", errAETimeout);
      return errAETimeout;
    }
    pollfd entry{connection.socket.get(), POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(wait.count())) <= 0) {
      if (!connection.peerExists()) return reportLost(identifier, "kill");
      continue;
    }
    const auto status = takeReply(connection, identifier, highestVersion, reply);
    if (status) return *status;
  }
}

}  // namespace

OSErr SocketTransport::send(const AppleEventDescriptor& event, AppleEventDescriptor& reply,
                            AESendMode sendMode, std::int32_t timeOutInTicks) {
  if (endpoint_) endpoint_->verify();
  const AppleEventDescriptor& target = event.target();
  std::size_t size = 0;
  if (const OSErr refusal = checkEvent(event, size); refusal != noErr) return refusal;

  const Deadline deadline(sendMode, timeOutInTicks);
  Connection connection;
  lastRecipient_ = 0;
  OSErr status = reach(*delivery_, target.data(), deadline, connection);
  if (status != noErr) {
    delivery_->reportFailure(target.data(), status);
    return status;
  }
  const bool wantsReply = sendMode == kAEWaitReply;
  if (wantsReply && connection.peer == getpid()) return sendToSelf(event, reply);
  // A peer that waits for this process's answer cannot give one. Peers that are not seen from here
  // all have the ID 0.
  const bool isWaiting = endpoint_ && endpoint_->waitingPeer() == connection.peer;
  if (wantsReply && isWaiting && connection.peer > 0) {
    reportStatus(DiagnosticCause::kMutualWait, target.data(), "", errAETimeout);
    return errAETimeout;
  }
  const PacketKind kind = wantsReply ? PacketKind::kEventWantingReply : PacketKind::kEvent;
  status = delivery_->handOver(connection, kind, event, size);
  while (status == errAETimeout && !deadline.hasPassed()) {
    std::this_thread::sleep_for(kTryInterval);
    status = delivery_->handOver(connection, kind, event, size);
  }
  if (status == noErr) lastRecipient_ = static_cast<std::uint64_t>(connection.peer);
  if (status != noErr) delivery_->reportFailure(target.data(), status);
  if (status != noErr || !wantsReply) return status;
  return awaitReply(connection, target.data(), deadline, delivery_->highestVersion(), reply);
}

std::unique_ptr<PendingReply> SocketTransport::query(AppleEventDescriptor event,
                                                     ReplyHandler handler) {
  if (endpoint_) endpoint_->verify();
  return std::make_unique<SocketQuery>(delivery_, std::move(event), std::move(handler));
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
  if (!identifier || identifier->empty()) {
    report(DiagnosticCause::kOwnIdentifierMissing, Bundle::mainBundle().bundlePath());
    return paramErr;
  }
  receiver_ = std::move(receiver);
  endpoint_ = std::make_unique<SocketEndpoint>(*identifier, receiver_, delivery_->highestVersion());
  return endpoint_->open();
}

void SocketTransport::stopReceiving() {
  endpoint_.reset();
  receiver_ = nullptr;
}

std::unique_ptr<AppleEventTransport> makeSystemTransport() {
  return std::make_unique<SocketTransport>();
}

}  // namespace clientcomm
