#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// What carries events from one application to another. The library has one for the operating
/// system; a test or a product can put another in its place.
class AppleEventTransport {
 public:
  /// Handles one event that arrived, which it takes over, filling in the reply; must not throw.
  using Receiver = std::function<OSErr(AppleEventDescriptor event, AppleEventDescriptor& reply)>;

  virtual ~AppleEventTransport() = default;

  /// Carries `event` to its target. In mode kAENoReply it returns when the event was handed over;
  /// in mode kAEWaitReply when the answer is in `reply`, or the time-out has passed.
  /// @param timeOutInTicks kAEDefaultTimeout, kNoTimeOut, or a number of ticks.
  virtual OSErr send(const AppleEventDescriptor& event, AppleEventDescriptor& reply,
                     AESendMode sendMode, std::int32_t timeOutInTicks) = 0;

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
