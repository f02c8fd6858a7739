#include "ClientComm/platform/run_loop.h"

#include <fcntl.h>
#include <glib.h>
#include <poll.h>
#include <unistd.h>

#include <span>
#include <utility>
#include <vector>

#include "ClientComm/platform/glib/main_context.h"
#include "ClientComm/platform/linux/poll_set.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

// The sources stay on a main context, one that only the host's calls iterate. Whatever changes on
// it makes one of its descriptors readable, so that the set follows from one turn to the next.
struct RunLoop::State {
  PollSet descriptors;
  GMainContext* context = nullptr;
  const pid_t process = getpid();
  std::vector<GPollFD> polled;
  int timeout = -1;  ///< Until the context has something to do, in milliseconds.

  State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() {
    if (context != nullptr) g_main_context_unref(context);
  }

  bool open();
  bool poll();
  void watch();
};

/// @return false when the process is out of descriptors.
bool RunLoop::State::open() {
  if (!descriptors.open()) return false;
  // A context takes one too, and ends the process where there is none.
  if (!ScopedFd(fcntl(descriptors.descriptor(), F_DUPFD_CLOEXEC, 0)).isValid()) return false;
  context = g_main_context_new();
  descriptors.watch({}, 0);  // so that the first turn is not passed over
  return true;
}

/// @return whether a source is due.
bool RunLoop::State::poll() {
  gint priority = 0;
  g_main_context_prepare(context, &priority);
  const auto query = [&] {
    const auto room = static_cast<gint>(polled.size());
    return g_main_context_query(context, priority, &timeout, polled.data(), room);
  };
  gint count = query();
  while (count > static_cast<gint>(polled.size())) {
    polled.resize(static_cast<std::size_t>(count));
    count = query();
  }
  polled.resize(static_cast<std::size_t>(count));
  for (GPollFD& entry : polled) entry.revents = 0;
  g_poll(polled.data(), static_cast<guint>(count), 0);
  return g_main_context_check(context, priority, polled.data(), count) != FALSE;
}

void RunLoop::State::watch() {
  std::vector<pollfd> entries;
  entries.reserve(polled.size());
  for (const GPollFD& entry : polled) {
    entries.push_back({entry.fd, static_cast<decltype(pollfd::events)>(entry.events), 0});
  }
  descriptors.watch(entries, timeout);
}

bool RunLoop::isSystemsInUse() noexcept { return isHostsMainContextInUse(); }

std::unique_ptr<RunLoop> RunLoop::make() {
  auto state = std::make_unique<State>();
  if (!state->open()) return nullptr;
  std::unique_ptr<RunLoop> loop(new RunLoop(std::move(state)));
  loop->turn();
  setOwnMainContext(loop->state_->context);
  return loop;
}

RunLoop::RunLoop(std::unique_ptr<State> state) : state_(std::move(state)) {}

RunLoop::~RunLoop() { setOwnMainContext(nullptr); }

int RunLoop::descriptor() const noexcept { return state_->descriptors.descriptor(); }

bool RunLoop::isForked() const noexcept { return getpid() != state_->process; }

void RunLoop::turn() {
  if (!state_->descriptors.isReady()) return;
  GMainContext* const context = state_->context;
  g_main_context_acquire(context);
  const bool isDue = state_->poll();
  // What runs now may wait for the descriptor too.
  state_->watch();
  if (isDue) {
    g_main_context_dispatch(context);
    // This takes back what the dispatch has signalled to the context. What has become due since
    // then keeps the descriptor readable.
    state_->poll();
    state_->watch();
  }
  g_main_context_release(context);
}

}  // namespace clientcomm
