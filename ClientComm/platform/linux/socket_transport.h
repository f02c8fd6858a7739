#pragma once

#include <cstdint>
#include <memory>

#include "ClientComm/platform/apple_event_transport.h"
#include "ClientComm/platform/linux/event_delivery.h"
#include "ClientComm/platform/linux/socket_endpoint.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm {

/// Carries events over Unix sockets: one packet-oriented endpoint per application in the runtime
/// folder, named after its bundle identifier, and one connection per event. Keeps nothing between
/// sends but the endpoint.
class SocketTransport : public AppleEventTransport {
 public:
  /// @param highestVersion of the wire that is sent and served.
  explicit SocketTransport(WireVersion highestVersion = kHighestWireVersion)
      : delivery_(std::make_shared<EventDelivery>(highestVersion)) {}

  OSErr send(const AppleEventDescriptor& event, AppleEventDescriptor& reply, AESendMode sendMode,
             std::int32_t timeOutInTicks) override;
  std::unique_ptr<PendingReply> query(AppleEventDescriptor event, ReplyHandler handler) override;
  std::uint64_t lastRecipient() const override { return lastRecipient_; }
  /// @return paramErr for a process without bundle identifier, which cannot be addressed; else as
  ///         `SocketEndpoint::open`.
  OSErr startReceiving(Receiver receiver) override;
  void stopReceiving() override;

 private:
  OSErr sendToSelf(const AppleEventDescriptor& event, AppleEventDescriptor& reply);

  std::shared_ptr<EventDelivery> delivery_;  ///< Queries that are under way have it too.
  Receiver receiver_;
  std::unique_ptr<SocketEndpoint> endpoint_;
  std::uint64_t lastRecipient_ = 0;
};

}  // namespace clientcomm
