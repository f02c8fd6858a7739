#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "ClientComm/platform/apple_event_transport.h"
#include "ClientComm/platform/linux/socket_endpoint.h"

namespace clientcomm {

/// How long a sender waits at most for a target whose queue of events is full; the default time-out
/// of a send without reply.
inline constexpr std::chrono::milliseconds kHandOverLimit = std::chrono::seconds(5);

/// How long a sender waits for an answer by default: about a minute.
inline constexpr std::chrono::milliseconds kReplyLimit = std::chrono::seconds(60);

/// Carries events over Unix sockets: one packet-oriented endpoint per application in the runtime
/// folder, named after its bundle identifier, and one connection per event. Keeps nothing between
/// sends but the endpoint.
class SocketTransport : public AppleEventTransport {
 public:
  SocketTransport() = default;

  OSErr send(const AppleEventDescriptor& event, AppleEventDescriptor& reply, AESendMode sendMode,
             std::int32_t timeOutInTicks) override;
  std::uint64_t lastRecipient() const override { return lastRecipient_; }
  /// @return paramErr for a process without bundle identifier, which nobody could address; else as
  ///         `SocketEndpoint::open`.
  OSErr startReceiving(Receiver receiver) override;
  void stopReceiving() override;

 private:
  OSErr sendPacketTo(pid_t target, int socket, bool wantsReply, const AppleEventDescriptor& event,
                     std::size_t size);
  void noteIntroduction(pid_t target);
  bool isIntroducedTo(pid_t target, std::chrono::seconds validity) const;
  OSErr sendToSelf(const AppleEventDescriptor& event, AppleEventDescriptor& reply);
  const std::string& fileNameFor(const std::string& identifier);

  Receiver receiver_;
  std::unique_ptr<SocketEndpoint> endpoint_;
  std::uint64_t lastRecipient_ = 0;
  /// File names of the targets addressed so far, so that not every send computes a digest.
  std::unordered_map<std::string, std::string> fileNames_;
  /// When this process last handed its executable to each target.
  std::unordered_map<pid_t, std::chrono::steady_clock::time_point> introductions_;
};

}  // namespace clientcomm
