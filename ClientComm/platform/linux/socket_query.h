#pragma once

#include <glib.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "ClientComm/platform/apple_event_transport.h"
#include "ClientComm/platform/glib/scoped_source.h"
#include "ClientComm/platform/linux/event_delivery.h"

namespace clientcomm {

/// A query on its way over a socket: a source in the main context that hands the event over as soon
/// as the target takes it, and waits for the answer.
class SocketQuery final : public PendingReply {
 public:
  SocketQuery(std::shared_ptr<EventDelivery> delivery, AppleEventDescriptor event,
              AppleEventTransport::ReplyHandler handler);

 private:
  using Clock = std::chrono::steady_clock;

  static int dispatch(GSource* source, GSourceFunc callback, void* data) noexcept;
  std::optional<OSErr> handOver();
  std::optional<OSErr> checkForReply();
  std::optional<OSErr> proceed() noexcept;
  void wakeUpIn(std::chrono::milliseconds time);
  void finish(OSErr status);

  std::shared_ptr<EventDelivery> delivery_;
  AppleEventDescriptor event_;  ///< Until it has been handed over.
  std::string target_;
  AppleEventTransport::ReplyHandler handler_;
  Connection connection_;
  bool isHandedOver_ = false;
  std::optional<OSErr> refusal_;  ///< Of the first try, which is told from the run loop.
  AppleEventDescriptor reply_;
  ScopedSource source_;  ///< The last member: it goes before the socket that it polls.
};

}  // namespace clientcomm
