#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "ClientComm/platform/background_task.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::BackgroundTask;

TEST(BackgroundTaskConformance, IsDoneWithAllThatItHasDoneAndItsWorkIsDestroyed) {
  int result = 0;
  const auto held = std::make_shared<int>();
  const BackgroundTask task([&result, held] { result = 1; });
  ASSERT_TRUE(support::runLoopUntil([&] { return task.isDone(); }));
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(support::runLoopUntil([&] { return held.use_count() == 1; }));
}

TEST(BackgroundTaskConformance, EndsThatOfAnException) {
  const BackgroundTask task([] { throw std::runtime_error("the work failed"); });
  EXPECT_TRUE(support::runLoopUntil([&] { return task.isDone(); }));
}

TEST(BackgroundTaskConformance, WorkGoesOnWithoutItsTask) {
  const auto isDone = std::make_shared<std::atomic<bool>>(false);
  {
    const BackgroundTask task([isDone] { *isDone = true; });
  }
  EXPECT_TRUE(support::runLoopUntil([&] { return isDone->load(); }));
}

}  // namespace
