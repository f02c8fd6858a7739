#include "ClientComm/platform/apple_event_transport.h"

#include <unistd.h>

#include <string>
#include <utility>

#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

AppleEventDescriptor ownAddress() {
  ProcessSerialNumber psn;
  if (GetProcessForPID(getpid(), psn) != noErr) return {};
  return {typeProcessSerialNumber, std::string(reinterpret_cast<const char*>(&psn), sizeof psn)};
}

/// Hands events to the receivers of the processes in memory, on the run loop of the clock in
/// memory. A query is answered at once.
class MemoryTransport final : public AppleEventTransport {
 public:
  OSErr send(const AppleEventDescriptor& event, AppleEventDescriptor& reply, AESendMode sendMode,
             std::int32_t /*timeOutInTicks*/) override {
    recipient_ = 0;
    auto& system = support::MemorySystem::current();
    const auto* const target = system.processes.receiverFor(event.target().data());
    if (target == nullptr) return procNotFound;
    if (!flattenedSize(event)) return memFullErr;
    recipient_ = static_cast<std::uint64_t>(target->pid);
    AppleEventDescriptor sent = event;
    sent.setAttributeDescriptor(ownAddress(), keyAddressAttr);
    if (sendMode == kAEWaitReply) {
      reply = AppleEventDescriptor::appleEvent(kCallEventClass, kAnswerEventID, {},
                                               kAutoGenerateReturnID, kAnyTransactionID);
      return target->receiver(std::move(sent), reply);
    }
    system.clock.post([sent = std::move(sent), receiver = target->receiver] {
      AppleEventDescriptor unused = AppleEventDescriptor::appleEvent(
          kCallEventClass, kAnswerEventID, {}, kAutoGenerateReturnID, kAnyTransactionID);
      receiver(sent, unused);
    });
    return noErr;
  }

  std::uint64_t lastRecipient() const override { return recipient_; }

  OSErr startReceiving(Receiver receiver) override {
    setOwnReceiver(std::move(receiver));
    return noErr;
  }

  void stopReceiving() override { setOwnReceiver(nullptr); }

 private:
  static void setOwnReceiver(Receiver receiver) {
    auto* const own = support::MemorySystem::current().processes.find(getpid());
    if (own != nullptr) own->receiver = std::move(receiver);
  }

  std::uint64_t recipient_ = 0;
};

}  // namespace

std::unique_ptr<AppleEventTransport> makeSystemTransport() {
  return std::make_unique<MemoryTransport>();
}

}  // namespace clientcomm
