#include <gtest/gtest.h>

#include <chrono>

#include "ClientComm/platform/clock.h"

namespace {

TEST(ClockConformance, MovesOnByAtLeastWhatIsSlept) {
  constexpr std::chrono::milliseconds kPause{5};
  const auto before = clientcomm::currentTime();
  clientcomm::sleepFor(kPause);
  EXPECT_GE(clientcomm::currentTime() - before, kPause);
}

TEST(ClockConformance, NeverGoesBack) {
  auto last = clientcomm::currentTime();
  for (int i = 0; i < 1000; ++i) {
    const auto now = clientcomm::currentTime();
    ASSERT_GE(now, last);
    last = now;
  }
}

}  // namespace
