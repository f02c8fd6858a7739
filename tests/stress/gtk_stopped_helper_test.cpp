#include <gtest/gtest.h>

#include "tests/stress/gtk_window.h"
#include "tests/stress/stopped_helper.h"
#include "tests/stress/stress.h"
#include "tests/support/virtual_display.h"

namespace {

TEST(LoadOfAGtkWindow, IsDrawnThroughStartUpQueryAndTicksBesideAStoppedHelper) {
  const support::VirtualDisplay display;
  ASSERT_TRUE(display.isRunning());
  stress::Frames frames;
  ASSERT_TRUE(stress::showAnimatedWindow([&] { frames.note(); }));
  const auto report =
      stress::runBesideStoppedHelper(frames, stress::sizeFor(32, 400), stress::sizeFor(1, 10));
  ASSERT_TRUE(report);
  // docs/lab/performance.md has the rate. Drawing takes much more of a machine under load than the
  // frames that it is compared with.
  EXPECT_GE(report->share, 0.02);
  stress::report(report->text());
}

}  // namespace
