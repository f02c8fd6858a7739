#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "ClientComm/platform/timer.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::Timer;

constexpr std::chrono::milliseconds kInterval{10};

TEST(TimerConformance, FiresAgainAndAgainOnTheRunLoop) {
  int firings = 0;
  const auto timer = Timer::scheduledTimer(kInterval, [&](Timer&) { ++firings; });
  EXPECT_EQ(firings, 0) << "not before the loop runs";
  EXPECT_TRUE(support::runLoopUntil([&] { return firings == 3; }));
  EXPECT_TRUE(timer->isValid());
}

TEST(TimerConformance, MayEndItselfInItsCallback) {
  int firings = 0;
  const auto timer = Timer::scheduledTimer(kInterval, [&](Timer& fired) {
    ++firings;
    fired.invalidate();
  });
  int others = 0;
  const auto other = Timer::scheduledTimer(kInterval, [&](Timer&) { ++others; });
  EXPECT_TRUE(support::runLoopUntil([&] { return others == 3; }));
  EXPECT_EQ(firings, 1);
  EXPECT_FALSE(timer->isValid());
}

TEST(TimerConformance, MayBeDestroyedInItsCallback) {
  int firings = 0;
  std::unique_ptr<Timer> timer;
  timer = Timer::scheduledTimer(kInterval, [&](Timer&) {
    ++firings;
    timer.reset();
  });
  int others = 0;
  const auto other = Timer::scheduledTimer(kInterval, [&](Timer&) { ++others; });
  EXPECT_TRUE(support::runLoopUntil([&] { return others == 3; }));
  EXPECT_EQ(firings, 1);
}

TEST(TimerConformance, OnNoRunLoopIsNotValid) { EXPECT_FALSE(Timer().isValid()); }

}  // namespace
