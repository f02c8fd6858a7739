#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// A query that is under way. Its end withdraws the query: its handler is not called any more.
class PendingReply {
 public:
  PendingReply() = default;
  virtual ~PendingReply() = default;
  PendingReply(const PendingReply&) = delete;
  PendingReply& operator=(const PendingReply&) = delete;
};

/// What carries events from one application to another. The library has one for the operating
/// system; a test or a product can put another in its place.
class AppleEventTransport {
 public:
  /// Handles one event that arrived, which it takes over, filling in the reply; must not throw.
  using Receiver = std::function<OSErr(AppleEventDescriptor event, AppleEventDescriptor& reply)>;

  /// Takes the outcome of a query; must not throw. It may destroy the pending reply.
  /// @param reply the answer where the status is noErr, else the null descriptor.
  using ReplyHandler = std::function<void(OSErr status, AppleEventDescriptor reply)>;

  virtual ~AppleEventTransport() = default;

  /// Carries `event` to its target. In mode kAENoReply it returns when the event was handed over;
  /// in mode kAEWaitReply when the answer is in `reply`, or the time-out has passed.
  /// @param timeOutInTicks kAEDefaultTimeout, kNoTimeOut, or a number of ticks.
  virtual OSErr send(const AppleEventDescriptor& event, AppleEventDescriptor& reply,
                     AESendMode sendMode, std::int32_t timeOutInTicks) = 0;

  /// Sends `event`, which wants an answer, and returns without waiting for anything. `handler` is
  /// called once, later, on the current thread's run loop: with the answer; with `send`'s status
  /// where the event cannot be sent; with connectionInvalid when the target ends before it has
  /// answered. There is no time-out: a full queue and a target that is starting are waited for. The
  /// reply may outlive the carrier.
  virtual std::unique_ptr<PendingReply> query(AppleEventDescriptor event, ReplyHandler handler) = 0;

  /// Which process took the last event that was sent: a number unique to the process; 0 where the
  /// carrier cannot tell, or no process took it.
  virtual std::uint64_t lastRecipient() const { return 0; }

  /// Opens this application to events; they are handed to `receiver` one at a time, on the current
  /// thread's run loop, with the sender's address as the attribute 'addr'.
  virtual OSErr startReceiving(Receiver receiver) = 0;

  /// Closes this application to events.
  virtual void stopReceiving() = 0;
};

/// The operating system's carrier.
std::unique_ptr<AppleEventTransport> makeSystemTransport();

}  // namespace clientcomm
