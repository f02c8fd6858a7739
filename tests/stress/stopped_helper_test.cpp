#include "tests/stress/stopped_helper.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/stress/stress.h"

// A window that draws while the helper of its application is stopped.

namespace {

// The priorities of GTK's frame clock: layout, then drawing.
constexpr int kLayoutPriority = G_PRIORITY_HIGH_IDLE + 10;
constexpr int kDrawPriority = G_PRIORITY_HIGH_IDLE + 20;
constexpr guint kFrameInterval = 16;  // ms
constexpr std::chrono::milliseconds kDrawTime{2};

gboolean draw(gpointer frames) {
  std::this_thread::sleep_for(kDrawTime);
  static_cast<stress::Frames*>(frames)->note();
  return G_SOURCE_REMOVE;
}

gboolean layOut(gpointer frames) {
  g_idle_add_full(kDrawPriority, draw, frames, nullptr);
  return G_SOURCE_CONTINUE;
}

TEST(LoadOfAStoppedHelper, WindowIsDrawnThroughStartUpQueryAndTicks) {
  stress::Frames frames;
  g_timeout_add_full(kLayoutPriority, kFrameInterval, layOut, &frames, nullptr);
  const auto report =
      stress::runBesideStoppedHelper(frames, stress::sizeFor(32, 400), stress::sizeFor(1, 10));
  ASSERT_TRUE(report);
  // docs/lab/performance.md has the rate. A machine under load draws as few as it leaves time for.
  EXPECT_GE(report->share, 0.2);
  stress::report(report->text());
}

}  // namespace
