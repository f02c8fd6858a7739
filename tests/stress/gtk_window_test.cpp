#include "tests/stress/gtk_window.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/runtime.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/virtual_display.h"

// A window of GTK that is animated while others flood its application with calls, on an X server
// without a screen. GTK draws by the processor.

namespace {

using clientcomm::OptionalString;
using std::chrono::seconds;
using support::ChildProcess;
using Clock = std::chrono::steady_clock;

constexpr char kWindow[] = "com.example.gtkwindow";
constexpr char kFloodRole[] = "flood-gtk-window";
constexpr int kSenders = 8;

int frames = 0;

class GtkWindowCalls : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls = new clientcomm::Class(
        "GtkWindowCalls", clientcomm::makeShared<GtkWindowCalls>,
        {method<&GtkWindowCalls::note>("note:"), method<&GtkWindowCalls::progress>("progress")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void note(const OptionalString& /*text*/) { ++notes_; }
  /// Frames that were drawn, and calls that were carried out.
  OptionalString progress() { return std::to_string(frames) + " " + std::to_string(notes_); }

 private:
  int notes_ = 0;
};

const support::Role gtkWindow("gtk-window", [](const std::vector<std::string>&) -> int {
  if (!stress::showAnimatedWindow([] { ++frames; })) return 1;
  clientcomm::registerClass(GtkWindowCalls::staticClass());
  TQHPAppleEventProcesser::share();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
});

// Sends until it is ended.
const support::Role flood(kFloodRole, [](const std::vector<std::string>&) -> int {
  const std::string text[] = {"text"};
  for (;;) {
    TQHPAppleEventSender::share().sendEvnet(OptionalString(kWindow), "GtkWindowCalls",
                                            "note:", text);
  }
});

struct Progress {
  int frames = 0;
  int notes = 0;
  Clock::time_point time;
};

Progress progressOfWindow() {
  OptionalString text;
  TQHPAppleEventSender::share().sendEvnet(OptionalString(kWindow), "GtkWindowCalls", "progress", {},
                                          &text);
  Progress progress;
  std::istringstream(text.value_or("")) >> progress.frames >> progress.notes;
  progress.time = Clock::now();
  return progress;
}

struct Rate {
  double frames = 0;  ///< Per second, as `calls`.
  double calls = 0;
};

Rate rateOver(seconds time) {
  const Progress before = progressOfWindow();
  stress::pause(time);
  const Progress after = progressOfWindow();
  const std::chrono::duration<double> passed = after.time - before.time;
  return {(after.frames - before.frames) / passed.count(),
          (after.notes - before.notes) / passed.count()};
}

TEST(LoadOfAGtkWindow, IsDrawnWhileEightSendersFloodItsApplication) {
  const support::VirtualDisplay display;
  ASSERT_TRUE(display.isRunning());
  const ChildProcess target =
      support::runApplication(support::makeApplication("GtkWindow", kWindow, "gtk-window"));
  ASSERT_TRUE(support::waitUntilReachable(kWindow));
  const seconds time(stress::sizeFor(5, 20));
  const Rate alone = rateOver(time);
  std::vector<ChildProcess> senders;
  for (int i = 0; i < kSenders; ++i) {
    const std::string name = "Flood" + std::to_string(i);
    senders.push_back(
        support::runApplication(support::makeApplication(name, "com.example." + name, kFloodRole)));
  }
  const Rate flooded = rateOver(time);
  // 30 on a machine with nothing else to do; see docs/lab/performance.md.
  EXPECT_GE(flooded.frames, 10);
  EXPECT_GT(flooded.calls, 100);
  stress::report(std::to_string(flooded.frames) + " frames and " + std::to_string(flooded.calls) +
                 " calls a second, " + std::to_string(alone.frames) + " frames without senders");
}

}  // namespace
