#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "ClientComm/platform/apple_event.h"
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

 private:
  const std::string& fileNameFor(const std::string& identifier);
  std::optional<WireVersion> versionFor(int socket) const noexcept;
  void noteHandshake(pid_t target);
  bool isKnownTo(pid_t target, std::chrono::seconds validity) const;

  WireVersion highestVersion_;
  /// File names of the targets addressed so far, so that not every send computes a digest.
  std::unordered_map<std::string, std::string> fileNames_;
  /// When this process last handed its executable to each target.
  std::unordered_map<pid_t, std::chrono::steady_clock::time_point> handshakes_;
};

/// Takes the answer to a query off the connection, without waiting.
/// @return nothing as long as there is none; the answer's status; connectionInvalid when the peer
///         is gone.
std::optional<OSErr> takeReply(const Connection& connection, WireVersion highestVersion,
                               AppleEventDescriptor& reply);

}  // namespace clientcomm
