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

GSource* newExactSource(std::chrono::milliseconds interval) noexcept {
  const auto milliseconds = std::clamp<std::int64_t>(interval.count(), 1, G_MAXUINT);
  return g_timeout_source_new(static_cast<guint>(milliseconds));
}

// GLib puts the first firing of a timer of whole seconds off by up to three quarters of one, to
// when the others fire.
GSource* newSharedSource(std::chrono::seconds interval) noexcept {
  GSource* const source = g_timeout_source_new_seconds(static_cast<guint>(interval.count()));
  const gint64 latest = g_get_monotonic_time() + std::chrono::microseconds(interval).count();
  const gint64 due = g_source_get_ready_time(source);
  if (due > latest) g_source_set_ready_time(source, due - G_USEC_PER_SEC);
  return source;
}

GSource* newSource(std::chrono::milliseconds interval, TimerPrecision precision) noexcept {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(interval);
  const bool isShared = precision == TimerPrecision::kShared && seconds.count() > 0;
  return isShared ? newSharedSource(seconds) : newExactSource(interval);
}

}  // namespace

std::unique_ptr<Timer> Timer::scheduledTimer(std::chrono::milliseconds interval, Callback callback,
                                             TimerPrecision precision) {
  auto timer = std::make_unique<Timer>();
  auto firing = std::make_unique<Firing>(Firing{*timer, std::move(callback)});
  timer->state_->source.reset(newSource(interval, precision));
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
