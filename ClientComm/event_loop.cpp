#include "ClientComm/event_loop.h"

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

#include "ClientComm/internal/guard.h"
#include "ClientComm/platform/owner_thread.h"
#include "ClientComm/platform/run_loop.h"

namespace clientcomm {
namespace {

struct EventLoop {
  std::unique_ptr<RunLoop> loop;
  std::thread::id thread = std::this_thread::get_id();

  EventLoopStatus status() const noexcept {
    if (loop->isForked()) return EventLoopStatus::kForked;
    const bool isOwnThread = thread == std::this_thread::get_id();
    return isOwnThread ? EventLoopStatus::kDone : EventLoopStatus::kWrongThread;
  }
};

// Atomic, so that other threads can be refused.
std::atomic<const EventLoop*> openLoop = nullptr;

EventLoopStatus makeLoop() {
  requireOwnerThread();
  if (RunLoop::isSystemsInUse()) return EventLoopStatus::kTooLate;
  auto loop = RunLoop::make();
  if (!loop) return EventLoopStatus::kOutOfResources;
  openLoop = new EventLoop{std::move(loop)};
  return EventLoopStatus::kDone;
}

}  // namespace

int openEventLoop(EventLoopStatus* status) noexcept {
  const EventLoop* const existing = openLoop;
  const EventLoopStatus outcome = existing != nullptr
                                      ? existing->status()
                                      : guarded(EventLoopStatus::kOutOfResources, makeLoop);
  if (status != nullptr) *status = outcome;
  return outcome == EventLoopStatus::kDone ? openLoop.load()->loop->descriptor() : -1;
}

EventLoopStatus runEventLoop() noexcept {
  const EventLoop* const open = openLoop;
  if (open == nullptr) return EventLoopStatus::kNotOpen;
  if (const EventLoopStatus status = open->status(); status != EventLoopStatus::kDone) {
    return status;
  }
  return guarded(EventLoopStatus::kOutOfResources, [open] {
    open->loop->turn();
    return EventLoopStatus::kDone;
  });
}

}  // namespace clientcomm
