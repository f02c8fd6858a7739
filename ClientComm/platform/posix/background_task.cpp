#include "ClientComm/platform/background_task.h"

#include <signal.h>

#include <atomic>
#include <thread>
#include <utility>

namespace clientcomm {

struct BackgroundTask::State {
  std::atomic<bool> isDone = false;
};

namespace {

/// A thread that is started meanwhile runs no signal handler of the host.
class SignalsBlocked {
 public:
  SignalsBlocked() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t previous_ = {};
};

void run(const std::function<void()>& work) noexcept {
  try {
    work();
  } catch (...) {
    // The owner of the task sees by the result that it is missing.
  }
}

}  // namespace

BackgroundTask::BackgroundTask(std::function<void()> work) : state_(std::make_shared<State>()) {
  const SignalsBlocked blocked;
  std::thread([state = state_, work = std::move(work)]() mutable {
    run(work);
    work = nullptr;
    state->isDone = true;
  }).detach();
}

BackgroundTask::~BackgroundTask() = default;

bool BackgroundTask::isDone() const noexcept { return state_->isDone; }

}  // namespace clientcomm
