#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/runtime.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"

using clientcomm::OptionalString;

// A window that draws while others flood its application with calls.

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using support::ChildProcess;
using Clock = std::chrono::steady_clock;

constexpr char kWindow[] = "com.example.window";
constexpr char kFloodRole[] = "flood-window";

// The priorities of GTK's frame clock: layout, then drawing.
constexpr int kLayoutPriority = G_PRIORITY_HIGH_IDLE + 10;
constexpr int kDrawPriority = G_PRIORITY_HIGH_IDLE + 20;
constexpr guint kFrameInterval = 16;  // ms
constexpr milliseconds kDrawTime{2};

int frames = 0;

gboolean draw(gpointer /*data*/) {
  std::this_thread::sleep_for(kDrawTime);
  ++frames;
  return G_SOURCE_REMOVE;
}

gboolean layOut(gpointer /*data*/) {
  g_idle_add_full(kDrawPriority, draw, nullptr, nullptr);
  return G_SOURCE_CONTINUE;
}

class Window : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls = new clientcomm::Class(
        "Window", clientcomm::makeShared<Window>,
        {method<&Window::note>("note:"), method<&Window::progress>("progress")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void note(const OptionalString& /*text*/) { ++notes_; }
  /// Frames that were drawn, and calls that were carried out.
  OptionalString progress() { return std::to_string(frames) + " " + std::to_string(notes_); }

 private:
  int notes_ = 0;
};

const support::Role window("window", [](const std::vector<std::string>& /*arguments*/) -> int {
  clientcomm::registerClass(Window::staticClass());
  TQHPAppleEventProcesser::share();
  g_timeout_add_full(kLayoutPriority, kFrameInterval, layOut, nullptr, nullptr);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
});

// Sends until it is ended.
const support::Role flood(kFloodRole, [](const std::vector<std::string>& /*arguments*/) -> int {
  const std::string text[] = {"text"};
  for (;;) {
    TQHPAppleEventSender::share().sendEvnet(OptionalString(kWindow), "Window", "note:", text);
  }
});

struct Progress {
  int frames = 0;
  int notes = 0;
  Clock::time_point time;
};

Progress progressOfWindow() {
  OptionalString text;
  TQHPAppleEventSender::share().sendEvnet(OptionalString(kWindow), "Window", "progress", {}, &text);
  Progress progress;
  std::istringstream(text.value_or("")) >> progress.frames >> progress.notes;
  progress.time = Clock::now();
  return progress;
}

TEST(LoadOfAWindow, WindowDrawsWhileEightSendersFloodItsApplication) {
  const ChildProcess target =
      support::runApplication(support::makeApplication("Window", kWindow, "window"));
  ASSERT_TRUE(support::waitUntilReachable(kWindow));
  std::vector<ChildProcess> senders;
  for (int i = 0; i < 8; ++i) {
    const std::string name = "Flood" + std::to_string(i);
    senders.push_back(
        support::runApplication(support::makeApplication(name, "com.example." + name, kFloodRole)));
  }
  const Progress before = progressOfWindow();
  stress::pause(seconds(stress::sizeFor(5, 20)));
  const Progress after = progressOfWindow();
  const std::chrono::duration<double> time = after.time - before.time;
  const double framesPerSecond = (after.frames - before.frames) / time.count();
  const double callsPerSecond = (after.notes - before.notes) / time.count();
  // 30 on a machine with nothing else to do; see docs/lab/reliability.md.
  EXPECT_GE(framesPerSecond, 10);
  EXPECT_GT(callsPerSecond, 100);
  stress::report(std::to_string(framesPerSecond) + " frames and " + std::to_string(callsPerSecond) +
                 " calls a second");
}

}  // namespace
