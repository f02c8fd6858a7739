#include "tests/stress/stopped_helper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <sstream>
#include <string>
#include <thread>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace stress {
namespace {

using std::chrono::seconds;

constexpr seconds kTick{5};
constexpr std::chrono::milliseconds kFrameInterval{16};
constexpr seconds kLongest{120};  // of a step, on a machine under load

std::string resourceOf(const std::string& helper, int number) {
  return helper + "/Contents/Resources/" + std::to_string(number);
}

bool startUp() {
  std::optional<OSErr> outcome;
  TQHPHelper::shareAsync([&](OSErr status) { outcome = status; });
  return support::runLoopUntil([&] { return outcome.has_value(); }, kLongest) && outcome == 0;
}

bool query() {
  std::optional<OSErr> outcome;
  const auto query = TQHPHelper::share().netErrorPagePathAsync(
      [&](OSErr status, const clientcomm::OptionalString&) { outcome = status; }, seconds(2));
  return support::runLoopUntil([&] { return outcome.has_value(); }, kLongest) &&
         outcome == clientcomm::errAETimeout;
}

/// A thread that draws nothing, at the rate of a window: what the machine leaves for one.
class IdleWindow {
 public:
  IdleWindow() : thread_([this] { run(); }) {}
  ~IdleWindow() {
    isOver_ = true;
    thread_.join();
  }
  IdleWindow(const IdleWindow&) = delete;
  IdleWindow& operator=(const IdleWindow&) = delete;

  int frames() const { return frames_; }

 private:
  void run() {
    while (!isOver_) {
      std::this_thread::sleep_for(kFrameInterval);
      ++frames_;
    }
  }

  std::atomic<int> frames_ = 0;
  std::atomic<bool> isOver_ = false;
  std::thread thread_;  // the last member, since it uses the others
};

}  // namespace

void Frames::note() {
  const auto now = Clock::now();
  if (count_++ == 0) {
    first_ = now;
  } else {
    const std::chrono::duration<double, std::milli> gap = now - last_;
    longestGap_ = std::max(longestGap_, gap.count());
  }
  last_ = now;
}

void Frames::restart() { *this = Frames(); }

double Frames::perSecond() const {
  const std::chrono::duration<double> time = last_ - first_;
  return time.count() > 0 ? (count_ - 1) / time.count() : 0;
}

std::string StoppedHelperReport::text() const {
  std::ostringstream text;
  text.precision(1);
  text << std::fixed << framesPerSecond << " frames a second, the longest gap " << longestGap
       << " ms; " << 100 * share << " % of what the machine leaves for a window";
  return text.str();
}

std::optional<StoppedHelperReport> runBesideStoppedHelper(Frames& frames, int megabytes,
                                                          int ticks) {
  const support::ChildProcess other =
      support::runApplication(support::makeHost("other", "1.0"), {"3600000"});
  if (!support::waitUntil([] { return support::countInJournal("start other") == 1; }, kLongest)) {
    return std::nullopt;
  }
  const std::string newer = support::embedHelper("2.0");
  const std::string megabyte(std::size_t{1} << 20, 'x');
  for (int i = 0; i < megabytes; ++i) support::writeFile(resourceOf(newer, i), megabyte);
  const pid_t helper = support::helperPid();
  support::sendSignal(helper, SIGSTOP);
  frames.restart();
  const IdleWindow idle;
  const bool isDone = startUp() && query();
  support::runLoopUntil([] { return false; }, kTick * ticks);
  const StoppedHelperReport report{frames.perSecond(), frames.longestGap(),
                                   static_cast<double>(frames.count()) / (idle.frames() + 1)};
  support::sendSignal(helper, SIGCONT);
  const bool isTold =
      support::waitUntil([] { return support::countInJournal("exit P100") >= 1; }, kLongest);
  return isDone && isTold ? std::optional(report) : std::nullopt;
}

}  // namespace stress
