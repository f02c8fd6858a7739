#include "ClientComm/platform/timer.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "tests/support/test_sandbox.h"

namespace {

using namespace std::chrono_literals;
using clientcomm::Timer;
using clientcomm::TimerPrecision;
using Clock = std::chrono::steady_clock;

// Runs what the main loop has to do at this moment, without waiting.
void runWhatIsDue() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

// How long the main loop would sleep now, in milliseconds; -1 for ever.
int sleepOfTheLoop() {
  GMainContext* const context = g_main_context_default();
  EXPECT_TRUE(g_main_context_acquire(context));
  gint priority = 0;
  g_main_context_prepare(context, &priority);
  gint timeout = -1;
  GPollFD descriptors[16];
  g_main_context_query(context, priority, &timeout, descriptors, 16);
  g_main_context_release(context);
  return timeout;
}

TEST(Timer, FiresAgainAndAgainTheFirstTimeAfterOneInterval) {
  const auto start = Clock::now();
  auto firstFiring = Clock::time_point();
  int firings = 0;
  const auto timer = Timer::scheduledTimer(20ms, [&](Timer&) {
    if (++firings == 1) firstFiring = Clock::now();
  });
  EXPECT_TRUE(timer->isValid());
  ASSERT_TRUE(support::runLoopUntil([&] { return firings >= 3; }));
  EXPECT_GE(firstFiring - start, 19ms);
  EXPECT_GE(Clock::now() - start, 59ms);
}

TEST(Timer, HandsItselfToItsCallback) {
  Timer* handed = nullptr;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer& self) { handed = &self; });
  ASSERT_TRUE(support::runLoopUntil([&] { return handed != nullptr; }));
  EXPECT_EQ(handed, timer.get());
}

TEST(Timer, FiresOnlyWhileTheLoopRuns) {
  int firings = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++firings; });
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(firings, 0);
  ASSERT_TRUE(support::runLoopUntil([&] { return firings > 0; }));
}

TEST(Timer, CountsInMillisecondsAndDoesNotWakeTheLoopInBetween) {
  const auto timer = Timer::scheduledTimer(5432ms, [](Timer&) {});
  EXPECT_GT(sleepOfTheLoop(), 5000);
  EXPECT_LE(sleepOfTheLoop(), 5432);
}

// When the loop would wake, in milliseconds of the clock.
std::chrono::milliseconds wakeUpOfTheLoop() {
  for (;;) {
    const auto before = Clock::now();
    const std::chrono::milliseconds sleep(sleepOfTheLoop());
    if (Clock::now() - before > 2ms) continue;  // another process has run in between
    return std::chrono::round<std::chrono::milliseconds>(before.time_since_epoch() + sleep);
  }
}

TEST(Timer, FiresWithOthersOfWholeSecondsAndNeverLaterThanOneInterval) {
  const auto ignore = [](Timer&) {};
  auto first = Timer::scheduledTimer(5s, ignore, TimerPrecision::kShared);
  const auto moment = wakeUpOfTheLoop() % 1000ms;
  first.reset();
  for (int i = 0; i < 7; ++i) {
    std::this_thread::sleep_for(137ms);  // so that the timers begin at all parts of a second
    const auto latest = Clock::now() + 3001ms;
    const auto timer = Timer::scheduledTimer(3s, ignore, TimerPrecision::kShared);
    const auto wakeUp = wakeUpOfTheLoop();
    const auto apart = (wakeUp - moment + 500ms) % 1000ms - 500ms;
    EXPECT_LE(std::chrono::abs(apart), 5ms);
    EXPECT_LE(wakeUp, latest.time_since_epoch());
    EXPECT_GT(wakeUp, latest.time_since_epoch() - 1100ms);
  }
}

TEST(Timer, LeavesTheLoopAsleepOnceItIsGone) {
  auto timer = Timer::scheduledTimer(1000ms, [](Timer&) {});
  EXPECT_GE(sleepOfTheLoop(), 0);
  timer.reset();
  EXPECT_EQ(sleepOfTheLoop(), -1);
}

TEST(Timer, MayInvalidateItselfInItsCallback) {
  int firings = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer& self) {
    self.invalidate();
    ++firings;
  });
  ASSERT_TRUE(support::runLoopUntil([&] { return firings > 0; }));
  EXPECT_FALSE(timer->isValid());
  std::this_thread::sleep_for(10ms);
  runWhatIsDue();
  EXPECT_EQ(firings, 1);
}

TEST(Timer, MayBeDestroyedInItsCallbackWhichRunsOn) {
  std::unique_ptr<Timer> timer;
  const std::string text(1000, 'x');
  std::string seenAfterwards;
  timer = Timer::scheduledTimer(1ms, [&timer, &seenAfterwards, text](Timer&) {
    timer.reset();
    seenAfterwards = text;
  });
  ASSERT_TRUE(support::runLoopUntil([&] { return timer == nullptr; }));
  EXPECT_EQ(seenAfterwards, text);
  EXPECT_EQ(sleepOfTheLoop(), -1);
}

TEST(Timer, MayReplaceItselfInItsCallback) {
  std::unique_ptr<Timer> timer;
  int firingsOfSecond = 0;
  timer = Timer::scheduledTimer(
      1ms, [&](Timer&) { timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++firingsOfSecond; }); });
  EXPECT_TRUE(support::runLoopUntil([&] { return firingsOfSecond >= 2; }));
}

TEST(Timer, LetsGoOfItsCallbackWhenItEnds) {
  const auto held = std::make_shared<int>(0);
  auto invalidated = Timer::scheduledTimer(1ms, [held](Timer&) {});
  auto destroyed = Timer::scheduledTimer(1ms, [held](Timer&) {});
  EXPECT_EQ(held.use_count(), 3);
  invalidated->invalidate();
  destroyed.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(Timer, DoesNotFireAfterItWasInvalidatedWhileDue) {
  int firings = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++firings; });
  std::this_thread::sleep_for(5ms);
  timer->invalidate();
  timer->invalidate();
  runWhatIsDue();
  EXPECT_EQ(firings, 0);
  EXPECT_FALSE(timer->isValid());
}

TEST(Timer, OneThatIsOnNoLoopIsNotValid) {
  Timer timer;
  EXPECT_FALSE(timer.isValid());
  timer.invalidate();
  EXPECT_FALSE(timer.isValid());
  EXPECT_EQ(sleepOfTheLoop(), -1);
}

TEST(Timer, RunsOnTheLoopOfTheThreadThatSchedulesIt) {
  GMainContext* const context = g_main_context_new();
  g_main_context_push_thread_default(context);
  int firings = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++firings; });
  EXPECT_EQ(sleepOfTheLoop(), -1);
  const auto limit = std::chrono::steady_clock::now() + 20s;
  while (firings == 0 && std::chrono::steady_clock::now() < limit) {
    g_main_context_iteration(context, FALSE);
  }
  EXPECT_GT(firings, 0);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
}

TEST(Timer, AnIntervalOfNothingOrLessDoesNotKeepTheLoopFromItsOtherWork) {
  int firings = 0;
  bool hasOtherRun = false;
  const auto start = std::chrono::steady_clock::now();
  const auto none = Timer::scheduledTimer(0ms, [&](Timer&) { ++firings; });
  const auto negative = Timer::scheduledTimer(-5ms, [&](Timer&) { ++firings; });
  const auto other = Timer::scheduledTimer(20ms, [&](Timer&) { hasOtherRun = true; });
  ASSERT_TRUE(support::runLoopUntil([&] { return hasOtherRun && firings >= 4; }));
  const auto elapsed =
      std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  EXPECT_LE(firings, 2 * elapsed.count()) << "once a millisecond each";
}

TEST(Timer, StartsNoThread) {
  const int before = support::threadCount();
  int firings = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++firings; });
  ASSERT_TRUE(support::runLoopUntil([&] { return firings > 0; }));
  EXPECT_EQ(support::threadCount(), before);
}

}  // namespace
