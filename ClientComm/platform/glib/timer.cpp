#include "ClientComm/platform/timer.h"

#include <glib.h>

#include <algorithm>
#include <utility>

#include "ClientComm/platform/glib/main_context.h"
#include "ClientComm/platform/glib/scoped_source.h"

namespace clientcomm {

struct Timer::State {
  ScopedSource source;
};

namespace {

/// What the source keeps until it has fired for the last time, so that a callback may end its own
/// timer: the timer is gone then, but not the function that runs.
struct Firing {
  Timer& timer;
  Timer::Callback callback;
};

gboolean fire(gpointer data) noexcept {
  auto& firing = *static_cast<Firing*>(data);
  firing.callback(firing.timer);
  return G_SOURCE_CONTINUE;
}

}  // namespace

std::unique_ptr<Timer> Timer::scheduledTimer(std::chrono::milliseconds interval,
                                             Callback callback) {
  const auto milliseconds = std::clamp<std::int64_t>(interval.count(), 1, G_MAXUINT);
  auto timer = std::make_unique<Timer>();
  auto firing = std::make_unique<Firing>(Firing{*timer, std::move(callback)});
  timer->state_->source.reset(g_timeout_source_new(static_cast<guint>(milliseconds)));
  GSource* const source = timer->state_->source.get();
  g_source_set_callback(source, fire, firing.release(),
                        [](gpointer data) { delete static_cast<Firing*>(data); });
  attachToMainContext(source);
  return timer;
}

Timer::Timer() : state_(std::make_unique<State>()) {}

Timer::~Timer() = default;

void Timer::invalidate() noexcept { state_->source.reset(); }

bool Timer::isValid() const noexcept { return state_->source.isValid(); }

}  // namespace clientcomm
