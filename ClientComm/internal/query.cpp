#include "ClientComm/internal/query.h"

#include <new>
#include <utility>

#include "ClientComm/internal/guard.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/owner_thread.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {

std::shared_ptr<Query> Query::start(AppleEventDescriptor event, Handler handler,
                                    std::optional<std::chrono::milliseconds> limit) {
  auto query = std::make_shared<Query>(std::move(handler));
  if (limit) {
    if (isReporting()) query->target_ = event.target().data();
    query->finishLater(errAETimeout, *limit);
  }
  query->send(std::move(event));
  return query;
}

Query::Query(Handler handler) : handler_(std::move(handler)) {}

// The transport and the timer are this object's own, and never outlive it.
void Query::send(AppleEventDescriptor event) {
  try {
    reply_ = AppleEventManager::sharedAppleEventManager().transport().query(
        std::move(event),
        [this](OSErr status, AppleEventDescriptor reply) { finish(status, std::move(reply)); });
  } catch (const std::bad_alloc&) {
    reportException();
    finishLater(memFullErr, std::chrono::milliseconds(0));
  } catch (...) {
    reportException();
    finishLater(connectionInvalid, std::chrono::milliseconds(0));
  }
}

void Query::finishLater(OSErr status, std::chrono::milliseconds delay) {
  timer_ = Timer::scheduledTimer(delay, [this, status](Timer& /*timer*/) {
    if (status == errAETimeout) reportStatus(DiagnosticCause::kReplyLate, target_, "", status);
    finish(status, {});
  });
}

void Query::finish(OSErr status, AppleEventDescriptor reply) {
  // The handler may destroy the handle.
  const auto self = shared_from_this();
  const Handler handler = stop();
  guarded([&] {
    if (handler) handler(status, std::move(reply));
  });
}

void Query::cancel() noexcept {
  if (!isPending_) return;
  requireOwnerThread();
  stop();
}

void Query::keepItself() noexcept {
  if (isPending_) self_ = shared_from_this();
}

// Called where something else keeps this object.
Query::Handler Query::stop() noexcept {
  isPending_ = false;
  reply_.reset();
  timer_.reset();
  self_.reset();
  return std::exchange(handler_, nullptr);
}

}  // namespace clientcomm
