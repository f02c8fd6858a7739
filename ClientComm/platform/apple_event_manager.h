#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/apple_event_transport.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// Handles one event, which it takes over: fills in `reply`, an event record with nothing in it.
/// @return noErr, or the status that a waiting sender receives.
using AEEventHandler =
    std::function<OSErr(AppleEventDescriptor event, AppleEventDescriptor& reply)>;

/// The process's table of event handlers, and the carrier that brings it the events.
class AppleEventManager {
 public:
  static AppleEventManager& sharedAppleEventManager();

  AppleEventManager(const AppleEventManager&) = delete;
  AppleEventManager& operator=(const AppleEventManager&) = delete;

  /// Installs the handler for an event class and ID, replacing the one that was there. The first
  /// handler opens the application to events.
  void setEventHandler(AEEventHandler handler, AEEventClass eventClass, AEEventID eventID);
  /// Removes the handler; the last one closes the application to events.
  void removeEventHandler(AEEventClass eventClass, AEEventID eventID);

  /// Hands `event` to its handler.
  /// @return the handler's status; errAEEventNotHandled when there is none, or it threw.
  OSErr dispatchRawAppleEvent(AppleEventDescriptor event, AppleEventDescriptor& reply) noexcept;

  AppleEventTransport& transport() noexcept { return *transport_; }
  /// Puts another carrier in place. The application is open through it, if it was open before.
  void setTransport(std::unique_ptr<AppleEventTransport> transport);

 private:
  AppleEventManager();
  void startReceiving();

  std::map<std::pair<AEEventClass, AEEventID>, AEEventHandler> handlers_;
  std::unique_ptr<AppleEventTransport> transport_;
};

/// Sends `event` to its target through the carrier in place.
/// @param reply receives the answer in mode kAEWaitReply; unchanged when the send fails.
/// @param timeOutInTicks kAEDefaultTimeout, kNoTimeOut, or a number of ticks (1/60 s).
/// @return noErr; paramErr (no event, an unknown mode); procNotFound; connectionInvalid;
///         errAEEventNotHandled; errAETimeout; errAEEventNotPermitted; memFullErr.
OSErr AESendMessage(const AppleEventDescriptor& event, AppleEventDescriptor& reply,
                    AESendMode sendMode, std::int32_t timeOutInTicks) noexcept;

/// While one lives, an event that wants no reply and is sent with kAEDefaultTimeout waits at most
/// `limit` for its target.
class AEHandOverLimit {
 public:
  explicit AEHandOverLimit(std::chrono::milliseconds limit) noexcept;
  ~AEHandOverLimit();
  AEHandOverLimit(const AEHandOverLimit&) = delete;
  AEHandOverLimit& operator=(const AEHandOverLimit&) = delete;

 private:
  std::int32_t previous_;
};

/// Which process took the last event that `AESendMessage` sent; two events to one application went
/// to the same process exactly when the numbers are equal. 0 where that cannot be told.
std::uint64_t AELastRecipient() noexcept;

}  // namespace clientcomm
