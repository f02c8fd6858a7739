// The start-up that does not block, with real helpers. This process is the host.

#include <glib.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/event_loop.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

namespace {

using namespace std::chrono_literals;
using support::ChildProcess;
using support::countInJournal;
using support::embedHelper;
using support::helperPid;
using support::installedHelperPath;
using Statuses = std::vector<OSErr>;
namespace fs = std::filesystem;

constexpr char kOwnStart[] = "start P100 1.2.3";

// The thread sanitizer has a thread of its own.
#ifdef __SANITIZE_THREAD__
constexpr int kThreads = 2;
#else
constexpr int kThreads = 1;
#endif

/// Counts the turns of the main loop, 100 a second where nothing holds it up.
class TurnCount {
 public:
  TurnCount() : source_(g_timeout_add(10, countTurn, &turns_)) {}
  ~TurnCount() { g_source_remove(source_); }
  TurnCount(const TurnCount&) = delete;
  TurnCount& operator=(const TurnCount&) = delete;

  int turns() const { return turns_; }

 private:
  static gboolean countTurn(gpointer turns) {
    ++*static_cast<int*>(turns);
    return G_SOURCE_CONTINUE;
  }

  int turns_ = 0;
  guint source_;
};

class BackgroundStartUp : public testing::Test {
 protected:
  void start() {
    TQHPHelper::shareAsync([this](OSErr status) { statuses_.push_back(status); });
  }

  bool runUntilOver() {
    return support::runLoopUntil([this] { return !statuses_.empty(); }, 60s);
  }

  /// Runs the loop until the helper has had the start command so often. On a machine under load a
  /// tick may have to do it.
  static bool runUntilStarted(std::size_t times = 1) {
    return support::runLoopUntil([&] { return countInJournal(kOwnStart) >= times; }, 60s);
  }

  static TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

  /// Another host of the family installs and launches the helper, which is stopped then.
  static ChildProcess hostWithStoppedHelper() {
    ChildProcess host = support::runApplication(support::makeHost("other", "1.0"), {"90000"});
    EXPECT_TRUE(support::waitUntil([] { return countInJournal("start other") == 1; }, 60s));
    support::sendSignal(helperPid(), SIGSTOP);
    return host;
  }

  Statuses statuses_;
};

TEST_F(BackgroundStartUp, InstallsLaunchesAndStartsTheHelper) {
  const std::string resource = embedHelper("1.0");
  start();
  ASSERT_TRUE(runUntilOver());
  EXPECT_TRUE(support::haveSameContents(resource, installedHelperPath()));
  EXPECT_TRUE(runUntilStarted());
  EXPECT_TRUE(support::runLoopUntil([] { return controller().clientID().has_value(); }));
  EXPECT_EQ(controller().clientID(), "client-" + std::to_string(helperPid()));
  EXPECT_TRUE(support::waitUntil([] { return support::threadCount() == kThreads; }));
}

TEST_F(BackgroundStartUp, ReplacesAnOlderHelperThatRuns) {
  const ChildProcess other = [] {
    ChildProcess host = support::runApplication(support::makeHost("other", "1.0"), {"90000"});
    EXPECT_TRUE(support::waitUntil([] { return countInJournal("start other") == 1; }, 60s));
    return host;
  }();
  const std::string resource = embedHelper("2.0");
  start();
  ASSERT_TRUE(runUntilOver());
  EXPECT_TRUE(support::runLoopUntil([] { return countInJournal("up 2.0") == 1; }, 60s));
  EXPECT_TRUE(runUntilStarted());
  EXPECT_TRUE(support::haveSameContents(resource, installedHelperPath()));
}

TEST_F(BackgroundStartUp, LoopRunsOnWhileTheHelperIsStopped) {
  const ChildProcess other = hostWithStoppedHelper();
  embedHelper("1.0");
  const TurnCount loop;
  start();
  ASSERT_TRUE(runUntilOver());
  EXPECT_EQ(statuses_, Statuses{0}) << "its queue has taken the start command";
  const int before = loop.turns();
  EXPECT_TRUE(support::runLoopUntil([&] { return loop.turns() >= before + 50; }));
  EXPECT_EQ(controller().showHelper(), 0);
  EXPECT_EQ(controller().clientID(), std::nullopt);
  support::sendSignal(helperPid(), SIGCONT);
  EXPECT_TRUE(support::runLoopUntil([] { return controller().clientID().has_value(); }));
  EXPECT_EQ(countInJournal(kOwnStart), 1U);
}

TEST_F(BackgroundStartUp, NothingWaitsForAStoppedHelperWhoseQueueIsFull) {
  const ChildProcess other = hostWithStoppedHelper();
  embedHelper("1.0");
  start();
  ASSERT_TRUE(runUntilOver());
  auto waiting = support::raw::fillQueue(support::helperIdentifier());
  EXPECT_EQ(controller().stopHelper(), -1712);
  // Each would wait for 5 s.
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(controller().startHelper(), -1712);
    EXPECT_EQ(controller().showHelper(), 1);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 60s);
  waiting.clear();
  support::sendSignal(helperPid(), SIGCONT);
  EXPECT_TRUE(support::runLoopUntil([] { return controller().showHelper() == 0; }));
}

TEST_F(BackgroundStartUp, HelperThatHangsBeforeItOpensIsGivenUpAndStartedByATickOnceItOpens) {
  embedHelper("1.0", "TestHost.app", {{support::kStartDelayKey, support::kStopped}});
  const TurnCount loop;
  start();
  ASSERT_TRUE(runUntilOver());
  EXPECT_EQ(statuses_, Statuses{1});
  EXPECT_GE(loop.turns(), 20);
  support::sendSignal(helperPid(), SIGCONT);
  EXPECT_TRUE(runUntilStarted());
}

TEST_F(BackgroundStartUp, KilledHelperIsLaunchedAndStartedAgainByATick) {
  embedHelper("1.0");
  start();
  ASSERT_TRUE(runUntilStarted());
  const pid_t killed = helperPid();
  support::sendSignal(killed, SIGKILL);
  EXPECT_TRUE(runUntilStarted(2));
  EXPECT_NE(helperPid(), killed);
}

TEST_F(BackgroundStartUp, QueryToAHelperThatIsStillStartingIsAnswered) {
  embedHelper("1.0", "TestHost.app", {{support::kStartDelayKey, "500"}});
  const auto begin = std::chrono::steady_clock::now();
  start();
  ASSERT_TRUE(support::runLoopUntil([] { return countInJournal("up 1.0") == 1; }));
  OSErr status = 1;
  const auto query = controller().clientIDFormHelperAsync(
      [&](OSErr outcome, const clientcomm::OptionalString&) { status = outcome; });
  ASSERT_TRUE(support::runLoopUntil([&] { return !query.isPending(); }));
  // A helper counts as starting for 5 s, which a machine under load may take.
  const bool isSlow = std::chrono::steady_clock::now() - begin > 4s;
  EXPECT_TRUE(status == 0 || (isSlow && status == -600)) << status;
}

// --- Several hosts, and hosts that end ---

// Ends once the helper has had the start command of the product that its argument names.
const support::Role backgroundHost(
    "background-host", [](const std::vector<std::string>& arguments) -> int {
      TQHPHelper::shareAsync();
      const std::string start = "start " + arguments.at(0);
      return support::runLoopUntil([&] { return countInJournal(start) > 0; }, 60s) ? 0 : 1;
    });

// Ends in the middle of the copy, or after it.
const support::Role impatientHost("impatient-host", [](const std::vector<std::string>&) -> int {
  TQHPHelper::shareAsync();
  const auto hasBegun = [] {
    const fs::path folder = fs::path(installedHelperPath()).parent_path();
    return fs::exists(folder) && !fs::is_empty(folder);
  };
  return support::runLoopUntil(hasBegun) ? 0 : 1;
});

std::string makeBackgroundHost(const std::string& name, const char* role) {
  auto info = support::defaultHostInfo();
  for (const char* key : {"CFBundleName", "CFBundleExecutable", "CFBundleIdentifier"}) {
    info.erase(key);
  }
  info.insert_or_assign("PID", name);
  const std::string host =
      support::makeApplication(name, "com.example." + name, role, info, "hosts");
  embedHelper("1.0", "hosts/" + name + ".app");
  return host;
}

TEST_F(BackgroundStartUp, HostsThatStartAtOnceEndWithOneHelperAndOneCopy) {
  std::vector<ChildProcess> hosts;
  std::string host;
  for (const char* name : {"one", "two", "three", "four"}) {
    host = makeBackgroundHost(name, "background-host");
    hosts.push_back(support::runApplication(host, {name}));
  }
  for (ChildProcess& each : hosts) EXPECT_EQ(each.wait(), 0);
  EXPECT_EQ(support::processesOf(installedHelperPath()).size(), 1U);
  EXPECT_TRUE(support::haveSameContents(support::helperIn(host), installedHelperPath()));
}

TEST_F(BackgroundStartUp, HostThatEndsDuringTheCopyLeavesNothingThatTheNextOneStumblesOver) {
  const std::string host = makeBackgroundHost("impatient", "impatient-host");
  for (int i = 0; i < 500; ++i) {
    support::writeFile(support::helperIn(host) + "/Contents/Resources/" + std::to_string(i),
                       std::string(10000, 'x'));
  }
  EXPECT_EQ(support::runApplication(host).wait(), 0);
  const fs::path resource = support::helperIn(support::hostBundlePath());
  fs::create_directories(resource.parent_path());
  fs::copy(support::helperIn(host), resource, fs::copy_options::recursive);
  start();
  ASSERT_TRUE(runUntilOver());
  EXPECT_TRUE(support::haveSameContents(support::helperIn(host), installedHelperPath()));
  const fs::path folder = fs::path(installedHelperPath()).parent_path();
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1) << "the partial copy is gone";
}

// --- The loop of any host ---

TEST_F(BackgroundStartUp, RunsOnTheLoopOfAnyHost) {
  embedHelper("1.0");
  const int descriptor = clientcomm::openEventLoop();
  ASSERT_GE(descriptor, 0);
  start();
  const auto end = std::chrono::steady_clock::now() + 60s;
  while ((statuses_.empty() || countInJournal(kOwnStart) == 0) &&
         std::chrono::steady_clock::now() < end) {
    pollfd entry{descriptor, POLLIN, 0};
    if (poll(&entry, 1, 1000) > 0) clientcomm::runEventLoop();
  }
  EXPECT_EQ(statuses_.size(), 1U);
  EXPECT_EQ(countInJournal(kOwnStart), 1U);
}

}  // namespace
