#include "ClientComm/platform/apple_event_transport.h"

#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/timer.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

AppleEventDescriptor ownAddress() {
  ProcessSerialNumber psn;
  if (GetProcessForPID(getpid(), psn) != noErr) return {};
  return {typeProcessSerialNumber, std::string(reinterpret_cast<const char*>(&psn), sizeof psn)};
}

AppleEventDescriptor emptyAnswer() {
  return AppleEventDescriptor::appleEvent(kCallEventClass, kAnswerEventID, {},
                                          kAutoGenerateReturnID, kAnyTransactionID);
}

/// A query that the run loop of the clock in memory hands over and answers.
class MemoryQuery final : public PendingReply {
 public:
  MemoryQuery(AppleEventDescriptor event, AppleEventTransport::ReplyHandler handler)
      : event_(std::move(event)), handler_(std::move(handler)) {
    const auto* const target = processes().receiverFor(event_.target().data());
    if (target != nullptr) number_ = target->number;
    if (target == nullptr) refusal_ = procNotFound;
    if (target != nullptr && !flattenedSize(event_)) refusal_ = memFullErr;
    event_.setAttributeDescriptor(ownAddress(), keyAddressAttr);
    timer_ =
        Timer::scheduledTimer(std::chrono::milliseconds(1), [this](Timer& /*timer*/) { look(); });
  }

 private:
  static support::MemoryProcesses& processes() {
    return support::MemorySystem::current().processes;
  }

  void look() {
    const auto* const target = processes().receiverFor(event_.target().data());
    if (refusal_ != noErr) return finish(refusal_, {});
    if (target == nullptr || target->number != number_) return finish(connectionInvalid, {});
    if (target->isStopped) return;
    AppleEventDescriptor reply = emptyAnswer();
    timer_->invalidate();
    // A receiver may run the loop and end this query.
    const auto receiver = target->receiver;
    const std::weak_ptr<bool> life = life_;
    const OSErr status = receiver(std::move(event_), reply);
    if (life.lock()) finish(status, status == noErr ? std::move(reply) : AppleEventDescriptor());
  }

  void finish(OSErr status, AppleEventDescriptor reply) {
    timer_->invalidate();
    const auto handler = std::move(handler_);
    handler(status, std::move(reply));
  }

  AppleEventDescriptor event_;
  AppleEventTransport::ReplyHandler handler_;
  std::uint32_t number_ = 0;  ///< Of the process that has the query.
  OSErr refusal_ = noErr;
  std::unique_ptr<Timer> timer_;
  std::shared_ptr<bool> life_ = std::make_shared<bool>(true);
};

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
      reply = emptyAnswer();
      return target->receiver(std::move(sent), reply);
    }
    system.clock.post([sent = std::move(sent), receiver = target->receiver] {
      AppleEventDescriptor unused = emptyAnswer();
      receiver(sent, unused);
    });
    return noErr;
  }

  std::unique_ptr<PendingReply> query(AppleEventDescriptor event, ReplyHandler handler) override {
    return std::make_unique<MemoryQuery>(std::move(event), std::move(handler));
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
