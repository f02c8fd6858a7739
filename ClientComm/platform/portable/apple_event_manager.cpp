#include "ClientComm/platform/apple_event_manager.h"

#include <exception>
#include <new>
#include <utility>

#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/shared_object.h"

namespace clientcomm {
namespace {

// The time-out of an event whose sender names none and wants no reply.
std::int32_t handOverTicks = kAEDefaultTimeout;

}  // namespace

AppleEventManager& AppleEventManager::sharedAppleEventManager() {
  static SharedObject<AppleEventManager> manager;
  return manager.get([] { return new AppleEventManager; });
}

AppleEventManager::AppleEventManager() : transport_(makeSystemTransport()) {}

void AppleEventManager::startReceiving() {
  transport_->startReceiving([this](AppleEventDescriptor event, AppleEventDescriptor& reply) {
    return dispatchRawAppleEvent(std::move(event), reply);
  });
}

void AppleEventManager::setEventHandler(AEEventHandler handler, AEEventClass eventClass,
                                        AEEventID eventID) {
  const bool isFirst = handlers_.empty();
  handlers_.insert_or_assign({eventClass, eventID}, std::move(handler));
  if (isFirst) startReceiving();
}

void AppleEventManager::removeEventHandler(AEEventClass eventClass, AEEventID eventID) {
  const bool wasThere = handlers_.erase({eventClass, eventID}) > 0;
  if (wasThere && handlers_.empty()) transport_->stopReceiving();
}

OSErr AppleEventManager::dispatchRawAppleEvent(AppleEventDescriptor event,
                                               AppleEventDescriptor& reply) noexcept {
  try {
    const auto found = handlers_.find({event.eventClass(), event.eventID()});
    if (found == handlers_.end()) {
      reportStatus(DiagnosticCause::kEventNotHandled, "", "", errAEEventNotHandled);
      return errAEEventNotHandled;
    }
    // A handler may replace or remove itself.
    const AEEventHandler handler = found->second;
    return handler(std::move(event), reply);
  } catch (const std::bad_alloc&) {
    reportException();
    return memFullErr;
  } catch (...) {
    reportException();
    return errAEEventNotHandled;
  }
}

void AppleEventManager::setTransport(std::unique_ptr<AppleEventTransport> transport) {
  if (!handlers_.empty()) transport_->stopReceiving();
  transport_ = std::move(transport);
  if (!handlers_.empty()) startReceiving();
}

OSErr AESendMessage(const AppleEventDescriptor& event, AppleEventDescriptor& reply,
                    AESendMode sendMode, std::int32_t timeOutInTicks) noexcept {
  if (event.descriptorType() != typeAppleEvent) return paramErr;
  if (sendMode != kAENoReply && sendMode != kAEWaitReply) return paramErr;
  if (timeOutInTicks < kNoTimeOut) return paramErr;
  if (sendMode == kAENoReply && timeOutInTicks == kAEDefaultTimeout) timeOutInTicks = handOverTicks;
  try {
    return AppleEventManager::sharedAppleEventManager().transport().send(event, reply, sendMode,
                                                                         timeOutInTicks);
  } catch (const std::bad_alloc&) {
    reportException();
    return memFullErr;
  } catch (...) {
    reportException();
    return connectionInvalid;
  }
}

AEHandOverLimit::AEHandOverLimit(std::chrono::milliseconds limit) noexcept
    : previous_(std::exchange(handOverTicks,
                              static_cast<std::int32_t>(limit.count() * kTicksPerSecond / 1000))) {}

AEHandOverLimit::~AEHandOverLimit() { handOverTicks = previous_; }

std::uint64_t AELastRecipient() noexcept {
  return AppleEventManager::sharedAppleEventManager().transport().lastRecipient();
}

}  // namespace clientcomm
