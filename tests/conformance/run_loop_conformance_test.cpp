#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "ClientComm/platform/run_loop.h"
#include "ClientComm/platform/timer.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::RunLoop;
using clientcomm::Timer;

constexpr std::chrono::milliseconds kInterval{10};

TEST(RunLoopConformance, FiresTimersWhenTheHostTurnsIt) {
  const std::unique_ptr<RunLoop> loop = RunLoop::make();
  ASSERT_NE(loop, nullptr);
  EXPECT_GE(loop->descriptor(), 0);
  EXPECT_FALSE(loop->isForked());
  int firings = 0;
  int early = 0;
  const auto timer = Timer::scheduledTimer(kInterval, [&](Timer&) { ++firings; });
  const auto later = Timer::scheduledTimer(std::chrono::hours(1), [&](Timer&) { ++early; });
  EXPECT_TRUE(support::runLoopUntil([&] {
    loop->turn();
    return firings >= 3;
  }));
  EXPECT_EQ(early, 0) << "not before the interval has passed";
}

TEST(RunLoopConformance, MayBeTurnedFromWhatItRuns) {
  const std::unique_ptr<RunLoop> loop = RunLoop::make();
  ASSERT_NE(loop, nullptr);
  int firings = 0;
  const auto timer = Timer::scheduledTimer(kInterval, [&](Timer&) {
    ++firings;
    loop->turn();
  });
  EXPECT_TRUE(support::runLoopUntil([&] {
    loop->turn();
    return firings >= 3;
  }));
}

TEST(RunLoopConformance, SystemsRunLoopIsInUseOnceATimerIsOnIt) {
  EXPECT_FALSE(RunLoop::isSystemsInUse());
  const auto timer = Timer::scheduledTimer(kInterval, [](Timer&) {});
  EXPECT_TRUE(RunLoop::isSystemsInUse());
}

}  // namespace
