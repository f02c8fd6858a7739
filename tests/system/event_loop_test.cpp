#include "ClientComm/event_loop.h"

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/timer.h"
#include "tests/support/child_process.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

using namespace std::chrono_literals;
using clientcomm::AppleEventManager;
using clientcomm::EventLoopStatus;
using clientcomm::OptionalString;
using clientcomm::Timer;
using support::ChildProcess;

constexpr char kOwnIdentifier[] = "com.example.testhost";

bool isReadable(int descriptor, std::chrono::milliseconds limit = 0ms) {
  pollfd entry{descriptor, POLLIN, 0};
  return poll(&entry, 1, static_cast<int>(limit.count())) > 0;
}

/// A host of a loop of its own: waits for the descriptor only.
class EventLoop : public testing::Test {
 protected:
  /// Runs the loop until `condition` holds. @return whether it does within 20 seconds.
  bool runUntil(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
      if (std::chrono::steady_clock::now() >= limit) return false;
      if (!isReadable(descriptor_, 100ms)) continue;
      ++wakeUps_;
      EXPECT_EQ(clientcomm::runEventLoop(), EventLoopStatus::kDone);
    }
    return true;
  }

  /// Runs the loop until nothing is due. @return false when that is not reached in a few turns.
  static bool settles(int descriptor) {
    for (int turns = 0; turns < 20; ++turns) {
      if (!isReadable(descriptor)) return true;
      clientcomm::runEventLoop();
    }
    return false;
  }

  /// Opens this application to events; `handle` runs for each.
  static void takeEvents(std::function<void()> handle) {
    AppleEventManager::sharedAppleEventManager().setEventHandler(
        [handle = std::move(handle)](const clientcomm::AppleEventDescriptor&,
                                     clientcomm::AppleEventDescriptor&) {
          handle();
          return clientcomm::noErr;
        },
        clientcomm::kCallEventClass, clientcomm::kCallEventID);
  }

  static OSErr sendToSelf() {
    return TQHPAppleEventSender::share().sendEvnet(kOwnIdentifier, "Class", "selector", {});
  }

  ~EventLoop() override {
    AppleEventManager::sharedAppleEventManager().removeEventHandler(clientcomm::kCallEventClass,
                                                                    clientcomm::kCallEventID);
  }

  int descriptor_ = clientcomm::openEventLoop();
  int wakeUps_ = 0;
};

TEST_F(EventLoop, WakesTheHostOnceForATickAndIsQuietInBetween) {
  takeEvents([] {});
  int firings = 0;
  const auto timer = Timer::scheduledTimer(20ms, [&](Timer&) { ++firings; });
  ASSERT_TRUE(settles(descriptor_));
  EXPECT_EQ(firings, 0);
  EXPECT_TRUE(runUntil([&] { return firings >= 10; }));
  EXPECT_EQ(wakeUps_, firings);
}

TEST_F(EventLoop, SleepsForAsLongAsNothingIsDue) {
  takeEvents([] {});
  const auto timer = Timer::scheduledTimer(1h, [](Timer&) {});
  ASSERT_TRUE(settles(descriptor_));
  EXPECT_FALSE(isReadable(descriptor_, 300ms));
}

TEST_F(EventLoop, SourceThatIsAddedBetweenTurnsIsWatched) {
  ASSERT_TRUE(settles(descriptor_));
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++ticks; });
  EXPECT_TRUE(runUntil([&] { return ticks > 0; }));
}

TEST_F(EventLoop, CarriesOutCallsInTheirOrder) {
  int events = 0;
  takeEvents([&] { ++events; });
  for (int i = 0; i < 5; ++i) ASSERT_EQ(sendToSelf(), clientcomm::noErr);
  EXPECT_EQ(events, 0) << "not before the host runs the loop";
  EXPECT_TRUE(isReadable(descriptor_));
  EXPECT_TRUE(runUntil([&] { return events == 5; }));
  EXPECT_TRUE(settles(descriptor_));
}

TEST_F(EventLoop, TakesAFewMillisecondsOfCallsInOneRunAndStaysReadable) {
  constexpr int kEvents = 40;
  int events = 0;
  takeEvents([&] {
    ++events;
    std::this_thread::sleep_for(1ms);
  });
  for (int i = 0; i < kEvents; ++i) ASSERT_EQ(sendToSelf(), clientcomm::noErr);
  int most = 0;
  while (events < kEvents) {
    ASSERT_TRUE(isReadable(descriptor_, 20s));
    const int before = events;
    clientcomm::runEventLoop();
    most = std::max(most, events - before);
  }
  EXPECT_LE(most, 5) << "4 ms, and the call that is being carried out then";
}

TEST_F(EventLoop, QueryWaitsForItsAnswerInACallBack) {
  const ChildProcess target = support::runApplication(
      support::makeApplication("Target", "com.example.target", support::kEchoRole));
  ASSERT_TRUE(support::waitUntilReachable("com.example.target"));
  OptionalString answer;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer& self) {
    self.invalidate();
    const std::string text[] = {"text"};
    TQHPAppleEventSender::share().sendEvnet("com.example.target", "Echo", "say:", text, &answer);
  });
  EXPECT_TRUE(runUntil([&] { return answer == "text"; }));
}

TEST_F(EventLoop, RunFromACallBackTicksAndLeavesFurtherCallsUntilTheCallBackReturns) {
  int events = 0;
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(100ms, [&](Timer&) { ++ticks; });
  takeEvents([&] {
    if (++events > 1) return;
    const int before = wakeUps_;
    const int last = ticks + 3;
    EXPECT_TRUE(runUntil([&] { return ticks >= last; }));
    EXPECT_EQ(events, 1);
    // Further ones for the second call, whose socket is left alone from then on.
    EXPECT_LE(wakeUps_ - before, 3 + 3);
  });
  ASSERT_EQ(sendToSelf(), clientcomm::noErr);
  ASSERT_EQ(sendToSelf(), clientcomm::noErr);
  EXPECT_TRUE(runUntil([&] { return events == 2; }));
  EXPECT_TRUE(settles(descriptor_));
}

TEST_F(EventLoop, RunFromItsOwnTickDoesNotTickAgain) {
  int depth = 0;
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) {
    EXPECT_EQ(++depth, 1);
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(clientcomm::runEventLoop(), EventLoopStatus::kDone);
    --depth;
    ++ticks;
  });
  EXPECT_TRUE(runUntil([&] { return ticks >= 3; }));
}

TEST_F(EventLoop, NeverRunGivesNoTickAndNoCallAndLosesNone) {
  int events = 0;
  int ticks = 0;
  takeEvents([&] { ++events; });
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++ticks; });
  ASSERT_EQ(sendToSelf(), clientcomm::noErr);
  std::this_thread::sleep_for(20ms);
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  EXPECT_EQ(events + ticks, 0);
  EXPECT_TRUE(runUntil([&] { return events == 1 && ticks > 0; }));
}

TEST_F(EventLoop, OpenedTwiceIsTheSame) {
  EventLoopStatus status{};
  EXPECT_EQ(clientcomm::openEventLoop(&status), descriptor_);
  EXPECT_EQ(status, EventLoopStatus::kDone);
}

TEST_F(EventLoop, IsNotForOtherThreads) {
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++ticks; });
  std::thread([&] {
    std::this_thread::sleep_for(5ms);
    EventLoopStatus status{};
    EXPECT_EQ(clientcomm::openEventLoop(&status), -1);
    EXPECT_EQ(status, EventLoopStatus::kWrongThread);
    EXPECT_EQ(clientcomm::runEventLoop(), EventLoopStatus::kWrongThread);
    EXPECT_EQ(ticks, 0);
  }).join();
  EXPECT_TRUE(runUntil([&] { return ticks > 0; }));
}

TEST_F(EventLoop, IsNotForForkedCopiesAndGoesOnInTheirOrigin) {
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++ticks; });
  ChildProcess copy = ChildProcess::fork([&] {
    EventLoopStatus status{};
    const bool isRefused = clientcomm::openEventLoop(&status) == -1 &&
                           status == EventLoopStatus::kForked &&
                           clientcomm::runEventLoop() == EventLoopStatus::kForked;
    return isRefused && ticks == 0 ? 0 : 1;
  });
  EXPECT_EQ(copy.wait(), 0);
  EXPECT_TRUE(runUntil([&] { return ticks > 3; }));
}

TEST_F(EventLoop, IsQuietAlthoughAForkedCopyHoldsAConnectionThatHasEnded) {
  takeEvents([] {});
  const clientcomm::ScopedFd peer = support::raw::connectTo(kOwnIdentifier);
  ASSERT_TRUE(peer.isValid());
  ASSERT_TRUE(settles(descriptor_)) << "the connection is accepted and idle";
  const ChildProcess copy = ChildProcess::fork([] {
    for (;;) pause();
    return 0;
  });
  shutdown(peer.get(), SHUT_RDWR);
  ASSERT_TRUE(isReadable(descriptor_, 20s));
  EXPECT_TRUE(settles(descriptor_));
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++ticks; });
  EXPECT_TRUE(runUntil([&] { return ticks > 3; })) << "and is still that of the loop";
}

TEST_F(EventLoop, HearsAConnectionThatHasTheNumberOfAClosedOne) {
  takeEvents([] {});
  clientcomm::ScopedFd first = support::raw::connectTo(kOwnIdentifier);
  ASSERT_TRUE(settles(descriptor_));
  first.reset();
  const clientcomm::ScopedFd second = support::raw::connectTo(kOwnIdentifier);
  ASSERT_TRUE(second.isValid());
  ASSERT_TRUE(settles(descriptor_));
  shutdown(second.get(), SHUT_RDWR);
  EXPECT_TRUE(isReadable(descriptor_));
  EXPECT_TRUE(settles(descriptor_));
}

TEST_F(EventLoop, DescriptorThatTheHostHasClosedWakesNoMoreButTheLoopRunsOn) {
  int events = 0;
  takeEvents([&] { ++events; });
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  dup2(ends[0], descriptor_);  // closes it; another file has its number from now on
  ASSERT_EQ(sendToSelf(), clientcomm::noErr);
  EXPECT_FALSE(isReadable(descriptor_, 50ms));
  EXPECT_TRUE(support::waitUntil([&] {
    EXPECT_EQ(clientcomm::runEventLoop(), EventLoopStatus::kDone);
    return events == 1;
  }));
}

TEST_F(EventLoop, TicksWhileSignalsInterruptEverySystemCall) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const itimerval often{{0, 500}, {0, 500}};
  setitimer(ITIMER_REAL, &often, nullptr);
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(5ms, [&](Timer&) { ++ticks; });
  EXPECT_TRUE(runUntil([&] { return ticks >= 20; }));
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
}

TEST(EventLoopOpening, RunBeforeItIsNotOpen) {
  EXPECT_EQ(clientcomm::runEventLoop(), EventLoopStatus::kNotOpen);
}

TEST(EventLoopOpening, TakesFourDescriptors) {
  const int before = support::openDescriptorCount();
  const int descriptor = clientcomm::openEventLoop();
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(support::openDescriptorCount(), before + 4);
  EXPECT_EQ(support::threadCount(), 1);
}

TEST(EventLoopOpening, IsTooLateOnceATimerIsOnTheGLibContextWhereItStays) {
  int ticks = 0;
  const auto timer = Timer::scheduledTimer(1ms, [&](Timer&) { ++ticks; });
  EventLoopStatus status{};
  EXPECT_EQ(clientcomm::openEventLoop(&status), -1);
  EXPECT_EQ(status, EventLoopStatus::kTooLate);
  EXPECT_EQ(clientcomm::openEventLoop(), -1);
  EXPECT_EQ(clientcomm::runEventLoop(), EventLoopStatus::kNotOpen);
  EXPECT_TRUE(support::runLoopUntil([&] { return ticks > 3; }));
}

TEST(EventLoopOpening, WithoutDescriptorsIsAStatusAndSucceedsLater) {
  rlimit normal{};
  getrlimit(RLIMIT_NOFILE, &normal);
  const int next = dup(STDOUT_FILENO);
  close(next);
  for (int room = 0; room < 4; ++room) {
    const rlimit none{static_cast<rlim_t>(next + room), normal.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EventLoopStatus status{};
    EXPECT_EQ(clientcomm::openEventLoop(&status), -1);
    EXPECT_EQ(status, EventLoopStatus::kOutOfResources);
  }
  setrlimit(RLIMIT_NOFILE, &normal);
  EXPECT_GE(clientcomm::openEventLoop(), 0);
}

}  // namespace
