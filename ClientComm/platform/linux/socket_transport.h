#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "ClientComm/platform/apple_event_transport.h"
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
      : highestVersion_(highestVersion) {}

  OSErr send(const AppleEventDescriptor& event, AppleEventDescriptor& reply, AESendMode sendMode,
             std::int32_t timeOutInTicks) override;
  std::uint64_t lastRecipient() const override { return lastRecipient_; }
  /// @return paramErr for a process without bundle identifier, which cannot be addressed; else as
  ///         `SocketEndpoint::open`.
  OSErr startReceiving(Receiver receiver) override;
  void stopReceiving() override;

 private:
  struct Delivery;

  OSErr deliver(const Delivery& delivery);
  std::optional<WireVersion> versionFor(int socket) const noexcept;
  void noteHandshake(pid_t target);
  bool isKnownTo(pid_t target, std::chrono::seconds validity) const;
  OSErr sendToSelf(const AppleEventDescriptor& event, AppleEventDescriptor& reply);
  const std::string& fileNameFor(const std::string& identifier);

  WireVersion highestVersion_;
  Receiver receiver_;
  std::unique_ptr<SocketEndpoint> endpoint_;
  std::uint64_t lastRecipient_ = 0;
  /// File names of the targets addressed so far, so that not every send computes a digest.
  std::unordered_map<std::string, std::string> fileNames_;
  /// When this process last handed its executable to each target.
  std::unordered_map<pid_t, std::chrono::steady_clock::time_point> handshakes_;
};

}  // namespace clientcomm
