#include "ClientComm/platform/background_task.h"

#include "tests/support/memory/memory_system.h"

namespace clientcomm {

struct BackgroundTask::State {
  bool isDone = false;
};

// There is one thread: the run loop does the work, once.
BackgroundTask::BackgroundTask(std::function<void()> work) : state_(std::make_shared<State>()) {
  support::MemorySystem::current().clock.post([state = state_, work = std::move(work)] {
    try {
      work();
    } catch (...) {
    }
    state->isDone = true;
  });
}

BackgroundTask::~BackgroundTask() = default;

bool BackgroundTask::isDone() const noexcept { return state_->isDone; }

}  // namespace clientcomm
