#include "ClientComm/platform/run_loop.h"

#include "tests/support/memory/memory_system.h"

namespace clientcomm {

// The clock's own loop, without its waits.
struct RunLoop::State {};

bool RunLoop::isSystemsInUse() noexcept {
  return support::MemorySystem::current().clock.hasScheduled();
}

std::unique_ptr<RunLoop> RunLoop::make() { return std::unique_ptr<RunLoop>(new RunLoop(nullptr)); }

RunLoop::RunLoop(std::unique_ptr<State> state) : state_(std::move(state)) {}

RunLoop::~RunLoop() = default;

int RunLoop::descriptor() const noexcept { return 0; }

bool RunLoop::isForked() const noexcept { return false; }

void RunLoop::turn() {
  support::MemorySystem::current().clock.advance(std::chrono::milliseconds(0));
}

}  // namespace clientcomm
