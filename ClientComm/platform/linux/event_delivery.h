#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/diagnostic.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/types.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm {

/// The end of a wait; never, where there is no limit.
class Deadline {
 public:
  Deadline(AESendMode sendMode, std::int32_t ticks);
  /// For one try.
  static Deadline now() { return {kAENoReply, 0}; }

  bool hasPassed() const { return end_ && Clock::now() >= *end_; }

  /// What is left, at most `atMost`; 0 when it has passed.
  std::chrono::milliseconds remaining(std::chrono::milliseconds atMost) const;

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<Clock::time_point> end_;
};

/// A connection to a target, with the process that answers at the other end.
struct Connection {
  ScopedFd socket;
  pid_t peer = 0;  ///< 0 where it is in a process-ID namespace that is not seen from here.

  bool peerExists() const;
};

/// Why an event was not handed over.
struct DeliveryFailure {
  const char* call = "";
  int error = 0;                         ///< An errno value; 0 where there is none.
  std::optional<DiagnosticCause> cause;  ///< Where the status does not tell it.
};

/// Hands events over to their targets, and remembers of each what the next event need not find out
/// again.
class EventDelivery {
 public:
  /// @param highestVersion of the wire that is sent.
  explicit EventDelivery(WireVersion highestVersion) : highestVersion_(highestVersion) {}

  WireVersion highestVersion() const noexcept { return highestVersion_; }

  /// Connects to the application `identifier`; waits for room in its queue until `deadline`.
  /// @return procNotFound also while the application is starting; errAETimeout when its queue
  ///         stayed full.
  OSErr connect(const std::string& identifier, const Deadline& deadline, Connection& connection);

  /// Sends `event`, whose flattened size is `size`, over the connection; never waits.
  /// @return errAETimeout when a later try may succeed.
  OSErr handOver(const Connection& connection, PacketKind kind, const AppleEventDescriptor& event,
                 std::size_t size);

  /// Reports the failure of the last `connect` or `handOver`, which returned `status`, for a sender
  /// that gives up.
  void reportFailure(const std::string& identifier, OSErr status) const noexcept;

 private:
  const std::string& fileNameFor(const std::string& identifier);
  std::optional<WireVersion> versionFor(int socket) const noexcept;
  void noteHandshake(pid_t target);
  bool isKnownTo(pid_t target, std::chrono::seconds validity) const;

  WireVersion highestVersion_;
  DeliveryFailure failure_;  ///< Written by failures only.
  /// File names of the targets addressed so far, so that not every send computes a digest.
  std::unordered_map<std::string, std::string> fileNames_;
  /// When this process last handed its executable to each target.
  std::unordered_map<pid_t, std::chrono::steady_clock::time_point> handshakes_;
};

/// Checks that the event can be carried. @param size set to its flattened size.
/// @return paramErr, procNotFound without a target, memFullErr; a failure is reported.
OSErr checkEvent(const AppleEventDescriptor& event, std::size_t& size);

/// Takes the answer to a query off the connection, without waiting.
/// @return nothing as long as there is none; the answer's status; connectionInvalid when the peer
///         is gone. A failure is reported.
std::optional<OSErr> takeReply(const Connection& connection, const std::string& identifier,
                               WireVersion highestVersion, AppleEventDescriptor& reply);

/// Reports that the application `identifier` has gone. @return connectionInvalid.
OSErr reportLost(const std::string& identifier, const char* call) noexcept;

}  // namespace clientcomm
