#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "ClientComm/platform/call_record.h"
#include "ClientComm/platform/linux/endpoint_name.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/echo_calls.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"
#include "tools/clientcomm/watch/watched_call.h"

// `clientcomm watch`.

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;
using clientcomm::ScopedFd;
using support::ask;
using support::ChildProcess;
using support::kTarget;
using support::send;
using tool_test::Json;
using tool_test::run;
using Words = std::vector<std::string>;

class WatchCommand : public testing::Test {
 protected:
  static ChildProcess launch() {
    ChildProcess target =
        support::runApplication(support::makeApplication("Target", kTarget, support::kEchoRole));
    EXPECT_TRUE(support::waitUntilReachable(kTarget));
    return target;
  }

  /// Starts the command, which watches by then. Its first line has been read.
  static ChildProcess watch(const Words& options = {}) {
    Words line{CLIENTCOMM_TOOL, "watch", kTarget};
    line.insert(line.end(), options.begin(), options.end());
    ChildProcess tool = ChildProcess::spawn(line);
    EXPECT_NE(tool.readLine().value_or("").find(kTarget), std::string::npos);
    return tool;
  }
};

Json documentOf(ChildProcess& tool) {
  return Json::parse(tool.readLine().value_or(""), nullptr, false);
}

TEST_F(WatchCommand, ShowsACallAsADocument) {
  const ChildProcess target = launch();
  ChildProcess tool = watch({"--json", "--count=2"});
  EXPECT_EQ(ask("say:", {"hello"}), "hello");
  const Json call = documentOf(tool);
  EXPECT_EQ(call["caller"], "com.example.testhost");
  EXPECT_EQ(call["pid"], getpid());
  EXPECT_EQ(call["class"], "Echo");
  EXPECT_EQ(call["selector"], "say:");
  EXPECT_EQ(call["arguments"], Json({"hello"}));
  EXPECT_EQ(call["argumentCount"], 1);
  EXPECT_EQ(call["wantsReply"], true);
  EXPECT_EQ(call["status"], 0);
  EXPECT_EQ(call["answer"], "hello");
  EXPECT_GE(call["microseconds"], 0);
  EXPECT_EQ(call["missed"], 0);
  EXPECT_EQ(call["time"].get<std::string>().size(),
            std::string("2026-01-01T00:00:00.000000Z").size());
  const std::string text(1000, 'x');
  EXPECT_EQ(send("note:", {text}), 0);
  const Json second = documentOf(tool);
  EXPECT_EQ(second["arguments"][0]["bytes"], 1000);
  EXPECT_EQ(second["arguments"][0]["beginning"], text.substr(0, 255));
  EXPECT_TRUE(second["answer"].is_null());
  EXPECT_EQ(tool.wait(), 0);
}

TEST_F(WatchCommand, ShowsACallAsALineWithShortenedTexts) {
  const ChildProcess target = launch();
  ChildProcess tool = watch({"--pid"});
  EXPECT_EQ(ask("say:", {"a\tb"}), "a\tb");
  const std::string first = tool.readLine().value_or("");
  EXPECT_NE(first.find("com.example.testhost[" + std::to_string(getpid()) +
                       R"(]  Echo say: ("a\x09b")  -> "a\x09b"  )"),
            std::string::npos)
      << first;
  EXPECT_EQ(send("note:", {std::string(59, 'x') + "\u00e9\u00e9"}), 0);
  const std::string second = tool.readLine().value_or("");
  EXPECT_NE(second.find("\"" + std::string(59, 'x') + "\"... (63 bytes)"), std::string::npos)
      << second;
  EXPECT_NE(second.find("handed over"), std::string::npos) << second;
}

TEST_F(WatchCommand, ShowsTheSameAsAnotherAlsoWhenOneIsKilled) {
  const ChildProcess target = launch();
  ChildProcess first = watch({"--json"});
  ChildProcess second = watch({"--json"});
  EXPECT_EQ(send("note:", {"to both"}), 0);
  EXPECT_EQ(documentOf(first)["arguments"][0], "to both");
  EXPECT_EQ(documentOf(second)["arguments"][0], "to both");
  first.signal(SIGKILL);
  first.wait();
  for (const char* const text : {"one", "two"}) {
    EXPECT_EQ(ask("say:", {text}), text);
    EXPECT_EQ(documentOf(second)["answer"], text);
  }
}

TEST_F(WatchCommand, ThatIsStoppedHoldsUpNoCallAndShowsWhatItMissed) {
  constexpr int kCalls = 2000;
  const ChildProcess target = launch();
  ChildProcess tool = watch({"--json"});
  tool.signal(SIGSTOP);
  for (int i = 0; i < kCalls; ++i) ASSERT_EQ(send("note:", {"text"}), 0);
  const OptionalString notes = ask("notes", {});
  EXPECT_EQ(std::count(notes->begin(), notes->end(), '\n'), kCalls);
  tool.signal(SIGCONT);
  int missed = 0;
  int told = 0;
  const auto count = [&](const Json& call) {
    missed += call["missed"].get<int>();
    ++told;
  };
  // Once some are read there is room for another.
  count(documentOf(tool));
  while (missed == 0 && told < kCalls) {
    ASSERT_EQ(send("note:", {"more"}), 0);
    count(documentOf(tool));
  }
  EXPECT_GT(missed, 0);
}

TEST_F(WatchCommand, EndsWithTheApplication) {
  ChildProcess target = launch();
  ChildProcess tool = watch();
  target.signal(SIGKILL);
  target.wait();
  EXPECT_EQ(tool.readLine(), "The application has ended.");
  EXPECT_EQ(tool.wait(), 0);
}

TEST_F(WatchCommand, OfAnApplicationThatDoesNotRunFails) {
  const auto outcome = run({"watch", "com.example.absent"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.errors.find("No application"), std::string::npos) << outcome.errors;
}

// A receiver that does not know the packet closes the connection.
TEST_F(WatchCommand, OfAnOlderLibrarySaysSo) {
  const ChildProcess older = ChildProcess::fork([] {
    const auto name = std::make_unique<clientcomm::EndpointName>(kTarget, 1);
    ScopedFd listener;
    if (name->take(listener, clientcomm::EndpointName::IfTaken::kReplace) != 0) return 1;
    for (;;) {
      pollfd entry{listener.get(), POLLIN, 0};
      poll(&entry, 1, -1);
      const ScopedFd peer(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
      char packet[256];
      recv(peer.get(), packet, sizeof packet, 0);
    }
  });
  ASSERT_TRUE(support::waitUntilReachable(kTarget));
  const auto outcome = run({"watch", kTarget});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.errors.find("too old"), std::string::npos) << outcome.errors;
}

TEST_F(WatchCommand, WithAWrongCountIsAWrongUsage) {
  for (const char* const count : {"", "0", "-1", "many", "1x"}) {
    EXPECT_EQ(run({"watch", kTarget, std::string("--count=") + count}).status, 2) << count;
  }
  EXPECT_EQ(run({"watch"}).status, 2);
}

TEST(WatchedCall, IsReadWhereItIsWhole) {
  clientcomm::CallRecord record({}, {4711, "com.example.host", true});
  record.finish(clientcomm::noErr, {});
  const AppleEventDescriptor event = record.eventFor(7);
  const auto call = clientcomm::tool::watchedCallIn(event);
  ASSERT_TRUE(call);
  EXPECT_EQ(call->process, 4711);
  EXPECT_EQ(call->caller.text, "com.example.host");
  EXPECT_EQ(call->missed, 7);
}

TEST(WatchedCall, ThatIsCutShortOrOfAnotherTypeIsNone) {
  clientcomm::CallRecord record({}, {4711, "com.example.host", true});
  record.finish(clientcomm::noErr, {});
  AppleEventDescriptor event = record.eventFor(7);
  const std::string whole = event.paramDescriptorForKeyword(clientcomm::keyDirectObject)->data();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    event.setParamDescriptor({clientcomm::kWatchRecordType, whole.substr(0, size)},
                             clientcomm::keyDirectObject);
    EXPECT_FALSE(clientcomm::tool::watchedCallIn(event)) << size;
  }
  event.setParamDescriptor({clientcomm::typeUnicodeText, whole}, clientcomm::keyDirectObject);
  EXPECT_FALSE(clientcomm::tool::watchedCallIn(event));
  EXPECT_FALSE(clientcomm::tool::watchedCallIn({}));
}

}  // namespace
