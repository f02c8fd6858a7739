#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/text.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// Millions of events: none lost, none twice, in their senders' order, in constant memory.

namespace {

using support::ChildProcess;

constexpr char kTarget[] = "com.example.tally";
constexpr char kTallyRole[] = "stress-tally";
constexpr char kFloodRole[] = "stress-flood";

/// Counts the events of each sender, which are numbered from 0.
class Tally : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls =
        new clientcomm::Class("Tally", clientcomm::makeShared<Tally>,
                              {method<&Tally::take>("take:number:"), method<&Tally::sum>("sum"),
                               method<&Tally::outOfOrder>("outOfOrder")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void take(const OptionalString& sender, const OptionalString& number) {
    int& next = next_[*sender];
    if (clientcomm::intValue(*number) != next) ++outOfOrder_;
    next = clientcomm::intValue(*number) + 1;
    ++sum_;
  }
  OptionalString sum() { return std::to_string(sum_); }
  OptionalString outOfOrder() { return std::to_string(outOfOrder_); }

 private:
  std::map<std::string, int> next_;
  std::int64_t sum_ = 0;
  std::int64_t outOfOrder_ = 0;
};

const support::Role tallyRole(kTallyRole, [](const std::vector<std::string>&) {
  clientcomm::registerClass(Tally::staticClass());
  TQHPAppleEventProcesser::share();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
});

// Arguments: the sender's name, and how many events to send. An event that the target did not take
// in time is sent again. @return 0 when the target took all of them.
const support::Role floodRole(kFloodRole, [](const std::vector<std::string>& arguments) {
  const int count = clientcomm::intValue(arguments.at(1));
  for (int number = 0; number < count; ++number) {
    const std::string texts[] = {arguments[0], std::to_string(number)};
    OSErr status = clientcomm::errAETimeout;
    while (status == clientcomm::errAETimeout) {
      status = TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Tally",
                                                       "take:number:", texts);
    }
    if (status != clientcomm::noErr) return 1;
  }
  return 0;
});

std::string answerOfTarget(const char* selector) {
  OptionalString answer;
  TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Tally", selector, {}, &answer);
  return answer.value_or("nothing");
}

TEST(LoadOfEvents, MillionsOfEventsArriveOnceInTheirSendersOrderInConstantMemory) {
  constexpr int kSenders = 8;
  constexpr long kAllowedGrowthInKiB = 2048;
  const int events = stress::sizeFor(10'000, 1'250'000);
  const ChildProcess target =
      support::runApplication(support::makeApplication("Tally", kTarget, kTallyRole));
  ASSERT_TRUE(support::waitUntilReachable(kTarget));
  const auto flood = [](const std::string& prefix, int count) {
    std::vector<ChildProcess> senders;
    for (int i = 0; i < kSenders; ++i) {
      const std::string name = prefix + std::to_string(i);
      const std::string sender =
          support::makeApplication(name, "com.example." + name, kFloodRole, {}, "senders");
      senders.push_back(
          ChildProcess::spawn({support::executableOf(sender), name, std::to_string(count)}));
    }
    for (ChildProcess& sender : senders) EXPECT_EQ(sender.wait(), 0);
  };
  // What the target sets aside once for as many senders is not growth.
  constexpr int kFirst = 1000;
  flood("first", kFirst);
  EXPECT_EQ(answerOfTarget("sum"), std::to_string(kSenders * kFirst));
  const long before = stress::statusOf(target.pid(), "VmRSS");
  const auto time = stress::timeOf([&] { flood("sender", events); });
  EXPECT_EQ(answerOfTarget("sum"), std::to_string(kSenders * (kFirst + events)));
  EXPECT_EQ(answerOfTarget("outOfOrder"), "0");
  const long growth = stress::statusOf(target.pid(), "VmRSS") - before;
  EXPECT_LE(growth, kAllowedGrowthInKiB);
  stress::report(std::to_string(kSenders) + " senders, " + std::to_string(kSenders * events) +
                 " events in " + std::to_string(time.count() / 1000) +
                 " ms; the target's memory grew by " + std::to_string(growth) + " KiB");
}

}  // namespace
