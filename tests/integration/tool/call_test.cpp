#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"

// `clientcomm call`.

namespace {

using support::ChildProcess;
using tool_test::run;

constexpr char kTarget[] = "com.example.target";

ChildProcess runEcho() {
  ChildProcess echo =
      support::runApplication(support::makeApplication("Target", kTarget, support::kEchoRole));
  EXPECT_TRUE(support::waitUntilReachable(kTarget));
  return echo;
}

TEST(Call, PrintsTheAnswerThatItWaitsFor) {
  const ChildProcess target = runEcho();
  const auto outcome = run({"call", kTarget, "Echo", "say:", "hello", "--wait"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "hello\n");
}

TEST(Call, WithoutWaitingIsHandedOverAndCarriedOut) {
  const ChildProcess target = runEcho();
  EXPECT_EQ(run({"call", kTarget, "Echo", "note:", "first"}).status, 0);
  EXPECT_EQ(run({"call", kTarget, "Echo", "note:", "--", "--second"}).status, 0);
  EXPECT_EQ(run({"call", "--wait", kTarget, "Echo", "notes"}).output, "first\n--second\n\n");
}

TEST(Call, ComesFromTheToolsOwnIdentity) {
  const ChildProcess target = runEcho();
  EXPECT_EQ(run({"call", kTarget, "Echo", "note:", "first"}).status, 0);
  EXPECT_EQ(run({"call", kTarget, "Echo", "caller", "--wait"}).output, "org.clientcomm.tool\n")
      << "the caller of the call before";
}

TEST(Call, ThatIsAnsweredWithNilSaysSo) {
  const ChildProcess target = runEcho();
  const auto outcome = run({"call", kTarget, "NoSuchClass", "say:", "hello", "--wait", "--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.json()["status"], 0);
  EXPECT_TRUE(outcome.json()["answer"].is_null()) << outcome.output;
}

TEST(Call, ToAnApplicationThatDoesNotRunFailsWithAnExplanation) {
  const auto outcome = run({"call", "com.example.absent", "Echo", "say:", "hello"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("Status -600: No application"), std::string::npos)
      << outcome.output;
  const auto waited = run({"call", "com.example.absent", "Echo", "say:", "--wait", "--json"});
  EXPECT_EQ(waited.status, 1);
  EXPECT_EQ(waited.json()["status"], -600) << waited.output;
}

TEST(Call, EndsAtItsTimeLimitWhenTheAnswerDoesNotCome) {
  const ChildProcess target = runEcho();
  target.signal(SIGSTOP);
  const auto outcome =
      run({"call", kTarget, "Echo", "say:", "hello", "--wait", "--timeout=0.2", "--json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.json()["status"], -1712) << outcome.output;
}

TEST(Call, WithAWrongTimeLimitIsAWrongUsage) {
  for (const char* limit : {"", "soon", "-1", "nan", "1e99"}) {
    const auto outcome =
        run({"call", kTarget, "Echo", "say:", "--wait", std::string("--timeout=") + limit});
    EXPECT_EQ(outcome.status, 2) << limit;
    EXPECT_NE(outcome.errors.find("--timeout"), std::string::npos) << outcome.errors;
  }
  EXPECT_EQ(run({"call", kTarget, "Echo", "say:", "--timeout=1"}).status, 2);
}

}  // namespace
