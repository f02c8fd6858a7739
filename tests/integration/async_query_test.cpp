// Queries that do not block, between real processes.

#include <glib.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/async.h"
#include "ClientComm/event_loop.h"
#include "ClientComm/platform/runtime.h"
#include "tests/support/child_process.h"
#include "tests/support/echo_calls.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

using namespace std::chrono_literals;
using clientcomm::OptionalString;
using clientcomm::PendingQuery;
using support::ChildProcess;
using support::kTarget;
using support::send;

constexpr char kOwnIdentifier[] = "com.example.testhost";

struct Outcome {
  OSErr status;
  OptionalString text;
};

bool operator==(const Outcome& one, const Outcome& other) {
  return one.status == other.status && one.text == other.text;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.status << " " << outcome.text.value_or("nil");
}

using Outcomes = std::vector<Outcome>;

PendingQuery ask(const std::string& selector, const std::vector<std::string>& arguments,
                 clientcomm::QueryCallback<std::string> callback,
                 clientcomm::TimeLimit limit = std::nullopt, const std::string& target = kTarget) {
  return TQHPAppleEventSender::share().sendEvnetAsync(target, "Echo", selector, arguments,
                                                      std::move(callback), limit);
}

ChildProcess launchEcho() {
  return support::runApplication(support::makeApplication("Target", kTarget, support::kEchoRole));
}

class AsyncQueries : public testing::Test {
 protected:
  ChildProcess launch() {
    ChildProcess child = launchEcho();
    EXPECT_TRUE(support::waitUntilReachable(kTarget));
    return child;
  }

  /// An application that is stopped, with a queue that has room.
  ChildProcess launchStopped() {
    ChildProcess child = launch();
    child.signal(SIGSTOP);
    return child;
  }

  PendingQuery askToSay(const std::string& text, clientcomm::TimeLimit limit = std::nullopt,
                        const std::string& target = kTarget) {
    const auto note = [this](OSErr status, const OptionalString& answer) {
      outcomes_.push_back({status, answer});
    };
    return ask("say:", {text}, note, limit, target);
  }

  static bool runUntilOver(const PendingQuery& query) {
    return support::runLoopUntil([&] { return !query.isPending(); });
  }

  Outcomes outcomes_;
};

TEST_F(AsyncQueries, AnswerComesOnTheLoop) {
  const ChildProcess target = launch();
  const PendingQuery query = askToSay("text");
  EXPECT_EQ(outcomes_, Outcomes());
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{0, "text"}}));
}

TEST_F(AsyncQueries, AnswerOf16MiBComes) {
  const ChildProcess target = launch();
  const std::string large(std::size_t{16} << 20, 'x');
  const PendingQuery query = askToSay(large);
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{0, large}}));
}

TEST_F(AsyncQueries, LoopRunsOnWhileAStoppedApplicationDoesNotAnswer) {
  ChildProcess target = launchStopped();
  const PendingQuery query = askToSay("text");
  int turns = 0;
  const auto countTurn = [](gpointer count) -> gboolean {
    ++*static_cast<int*>(count);
    return G_SOURCE_CONTINUE;
  };
  const guint timer = g_timeout_add(10, countTurn, &turns);
  EXPECT_TRUE(support::runLoopUntil([&] { return turns >= 50; }));
  EXPECT_TRUE(query.isPending());
  target.signal(SIGCONT);
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{0, "text"}}));
  g_source_remove(timer);
}

TEST_F(AsyncQueries, TimeLimitPassesWhileTheApplicationIsStopped) {
  const ChildProcess target = launchStopped();
  const PendingQuery query = askToSay("text", 50ms);
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{-1712, std::nullopt}}));
}

TEST_F(AsyncQueries, ApplicationThatIsKilledMeanwhileEndsTheQueryAndARestartedOneAnswersTheNext) {
  ChildProcess target = launchStopped();
  const PendingQuery query = askToSay("text");
  target.signal(SIGKILL);
  target.wait();
  const ChildProcess next = launch();
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{-609, std::nullopt}}));
  const PendingQuery again = askToSay("again");
  ASSERT_TRUE(runUntilOver(again));
  EXPECT_EQ(outcomes_.back(), (Outcome{0, "again"}));
}

TEST_F(AsyncQueries, ApplicationWhoseForkedChildHoldsTheConnectionEndsTheQueryWithItsEnd) {
  ChildProcess target = launch();
  OptionalString child;
  TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Echo", "fork", {}, &child);
  ASSERT_TRUE(child.has_value());
  target.signal(SIGSTOP);
  const PendingQuery query = askToSay("text");
  target.signal(SIGKILL);
  target.wait();
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{-609, std::nullopt}}));
}

TEST_F(AsyncQueries, ApplicationThatDoesNotRunIsToldOnTheLoop) {
  const PendingQuery query = askToSay("text");
  EXPECT_EQ(outcomes_, Outcomes());
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{-600, std::nullopt}}));
}

TEST_F(AsyncQueries, FullQueueIsWaitedForWithoutBlocking) {
  ChildProcess target = launchStopped();
  auto waiting = support::raw::fillQueue(kTarget);
  const PendingQuery query = askToSay("text");
  const PendingQuery limited = askToSay("limited", 50ms);
  ASSERT_TRUE(runUntilOver(limited));
  EXPECT_EQ(outcomes_, (Outcomes{{-1712, std::nullopt}}));
  EXPECT_TRUE(query.isPending());
  waiting.clear();
  target.signal(SIGCONT);
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_.back(), (Outcome{0, "text"}));
}

TEST_F(AsyncQueries, HundredQueriesAreAnsweredAndTakeNoDescriptorForLonger) {
  ChildProcess target = launchStopped();
  { const PendingQuery first = askToSay("first"); }
  const int before = support::openDescriptorCount();
  std::vector<PendingQuery> queries;
  for (int i = 0; i < 100; ++i) queries.push_back(askToSay(std::to_string(i)));
  EXPECT_EQ(support::openDescriptorCount(), before + 100);
  target.signal(SIGCONT);
  ASSERT_TRUE(support::runLoopUntil([&] { return outcomes_.size() == 100; }));
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(std::count(outcomes_.begin(), outcomes_.end(), Outcome{0, std::to_string(i)}), 1);
  }
  EXPECT_EQ(support::openDescriptorCount(), before);
}

TEST_F(AsyncQueries, CancelledQueryTakesNoDescriptorForLonger) {
  const ChildProcess target = launchStopped();
  { const PendingQuery first = askToSay("first"); }
  const int before = support::openDescriptorCount();
  PendingQuery query = askToSay("text");
  EXPECT_EQ(support::openDescriptorCount(), before + 1);
  query.cancel();
  EXPECT_EQ(support::openDescriptorCount(), before);
}

TEST_F(AsyncQueries, ProcessOutOfDescriptorsIsToldOnTheLoop) {
  const ChildProcess target = launch();
  { const PendingQuery first = askToSay("first"); }
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const PendingQuery query = askToSay("text");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{-108, std::nullopt}}));
}

TEST_F(AsyncQueries, CommandSentAfterAQueryIsCarriedOutAfterIt) {
  const ChildProcess target = launch();
  OptionalString notes = "not answered";
  const PendingQuery query =
      ask("notes", {}, [&](OSErr, const OptionalString& text) { notes = text; });
  EXPECT_EQ(send("note:", {"later"}), 0);
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(notes, "");
}

TEST_F(AsyncQueries, ProcessCanQueryItself) {
  TQHPAppleEventProcesser::share();
  const PendingQuery query = askToSay("text", std::nullopt, kOwnIdentifier);
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, (Outcomes{{0, std::nullopt}})) << "it has no class of that name";
}

// --- A helper that waits for its host, whose method asks that helper ---

/// Answers `question` after it has asked the target, without waiting for it.
class Asking : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls =
        new clientcomm::Class("Asking", clientcomm::makeShared<Asking>,
                              {clientcomm::method<&Asking::question>("question")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  OptionalString question() {
    query = ask("say:", {"inner"}, [](OSErr status, const OptionalString& text) {
      outcome = {status, text};
    });
    return "answered";
  }

  static inline PendingQuery query;
  static inline Outcome outcome{1, std::nullopt};
};

const support::Role waitingHelper("waiting-helper", [](const std::vector<std::string>&) -> int {
  const auto askHost = [](gpointer) -> gboolean {
    OptionalString answer;
    TQHPAppleEventSender::share().sendEvnet(OptionalString(kOwnIdentifier), "Asking", "question",
                                            {}, &answer);
    return G_SOURCE_REMOVE;
  };
  g_idle_add(askHost, nullptr);
  return support::runRole(support::kEchoRole, {});
});

TEST_F(AsyncQueries, HelperThatWaitsForItsHostAnswersTheHostsQueryAfterwards) {
  clientcomm::registerClass(Asking::staticClass());
  TQHPAppleEventProcesser::share();
  const ChildProcess target =
      support::runApplication(support::makeApplication("Target", kTarget, "waiting-helper"));
  ASSERT_TRUE(support::runLoopUntil([] { return Asking::outcome.status != 1; }));
  EXPECT_EQ(Asking::outcome, (Outcome{0, "inner"}));
}

// --- A host that ends ---

PendingQuery queryUntilTheEnd;

const support::Role endingHost("ending-host", [](const std::vector<std::string>&) -> int {
  queryUntilTheEnd = ask("say:", {"text"}, [](OSErr, const OptionalString&) { std::abort(); });
  ask("say:", {"text"}, [](OSErr, const OptionalString&) { std::abort(); }).detach();
  return queryUntilTheEnd.isPending() ? 0 : 1;
});

TEST_F(AsyncQueries, HostMayEndWhileQueriesArePending) {
  const ChildProcess target = launchStopped();
  ChildProcess host = support::runApplication(
      support::makeApplication("Ending", "com.example.ending", "ending-host"));
  EXPECT_EQ(host.wait(), 0);
}

// --- The loop of any host ---

class AsyncQueriesOnAnyLoop : public AsyncQueries {
 protected:
  AsyncQueriesOnAnyLoop() : descriptor_(clientcomm::openEventLoop()) {}

  /// Waits for the descriptor only.
  bool turnUntilOver(const PendingQuery& query) {
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (query.isPending()) {
      if (std::chrono::steady_clock::now() >= limit) return false;
      pollfd entry{descriptor_, POLLIN, 0};
      if (poll(&entry, 1, 100) > 0) clientcomm::runEventLoop();
    }
    return true;
  }

  int descriptor_;
};

TEST_F(AsyncQueriesOnAnyLoop, AnswersFailuresAndTimeLimitsWakeTheHost) {
  ChildProcess target = launch();
  const PendingQuery answered = askToSay("text");
  ASSERT_TRUE(turnUntilOver(answered));
  const PendingQuery missing = askToSay("text", std::nullopt, "com.example.none");
  ASSERT_TRUE(turnUntilOver(missing));
  target.signal(SIGSTOP);
  const PendingQuery limited = askToSay("text", 50ms);
  ASSERT_TRUE(turnUntilOver(limited));
  const PendingQuery late = askToSay("late");
  target.signal(SIGCONT);
  ASSERT_TRUE(turnUntilOver(late));
  EXPECT_EQ(outcomes_,
            (Outcomes{{0, "text"}, {-600, std::nullopt}, {-1712, std::nullopt}, {0, "late"}}));
}

TEST_F(AsyncQueriesOnAnyLoop, CancelledQueryDoesNotKeepTheDescriptorReadable) {
  ChildProcess target = launchStopped();
  PendingQuery query = askToSay("text", 20ms);
  query.cancel();
  target.signal(SIGCONT);
  const PendingQuery other = askToSay("other");
  ASSERT_TRUE(turnUntilOver(other));
  const auto isQuiet = [&] {
    clientcomm::runEventLoop();
    pollfd entry{descriptor_, POLLIN, 0};
    return poll(&entry, 1, 0) == 0;
  };
  EXPECT_TRUE(support::waitUntil(isQuiet));
  EXPECT_EQ(outcomes_, (Outcomes{{0, "other"}}));
}

}  // namespace
