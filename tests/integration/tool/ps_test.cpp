#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/property_list.h"
#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/echo_calls.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// `clientcomm ps`.

namespace {

using support::ask;
using support::ChildProcess;
using support::kTarget;
using support::send;
using tool_test::Json;
using tool_test::run;
namespace fs = std::filesystem;

std::string makeTarget() {
  return support::makeApplication("Target", kTarget, support::kEchoRole,
                                  {{"CFBundleVersion", "3.4"}});
}

std::string recordPath(pid_t pid) {
  return clientcomm::runtimeFolderPath() + "/process." + std::to_string(pid);
}

ChildProcess runTarget(const std::string& path) {
  ChildProcess target = support::runApplication(path);
  EXPECT_TRUE(support::waitUntilReachable(kTarget));
  EXPECT_TRUE(support::waitUntil([&] { return fs::exists(recordPath(target.pid())); }));
  return target;
}

/// What `clientcomm ps --json` says of the application; null where it says nothing.
Json shown(const std::string& identifier) {
  const auto outcome = run({"ps", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  const Json all = outcome.json();
  for (const Json& application : all["applications"]) {
    if (application["identifier"] == identifier) return application;
  }
  return {};
}

TEST(Ps, ShowsAHostAndAHelperWithTheirFields) {
  const std::string path = makeTarget();
  const ChildProcess host = runTarget(path);
  const ChildProcess helper = support::runInstalledHelper();
  const Json application = shown(kTarget);
  EXPECT_EQ(application["pid"], host.pid());
  EXPECT_EQ(application["bundle"], path);
  EXPECT_EQ(application["version"], "3.4");
  EXPECT_EQ(application["libraryVersion"], CLIENTCOMM_VERSION);
  EXPECT_EQ(application["wireVersion"], 1);
  EXPECT_GE(application["ageSeconds"], 0);
  EXPECT_LT(application["ageSeconds"], 600);
  EXPECT_TRUE(support::waitUntil([] { return shown(kTarget)["waitingCalls"] == 0; }));
  EXPECT_EQ(application["endpoint"], clientcomm::fileNameForIdentifier(kTarget));
  const Json other = shown(support::helperIdentifier());
  EXPECT_EQ(other["pid"], helper.pid());
  EXPECT_EQ(other["version"], "1.0");
  const auto text = run({"ps"});
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.output.find(std::string(kTarget) + "  "), std::string::npos) << text.output;
  EXPECT_NE(text.output.find(path + "\n"), std::string::npos) << text.output;
}

TEST(Ps, CountsTheCallsThatWait) {
  const ChildProcess target = runTarget(makeTarget());
  EXPECT_EQ(ask("say:", {"text"}), "text");
  EXPECT_EQ(shown(kTarget)["waitingCalls"], 0);
  EXPECT_EQ(ask("say:", {"text"}), "text");  // after it, nothing else is in the queue
  target.signal(SIGSTOP);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(send("note:", {"text"}), 0);
  EXPECT_EQ(shown(kTarget)["waitingCalls"], 3);
  target.signal(SIGCONT);
  EXPECT_TRUE(support::waitUntil([] { return shown(kTarget)["waitingCalls"] == 0; }));
}

TEST(Ps, ShowsAnApplicationWhoseQueueIsFull) {
  const ChildProcess target = runTarget(makeTarget());
  target.signal(SIGSTOP);
  const auto waiting = support::raw::fillQueue(kTarget);
  const Json application = shown(kTarget);
  EXPECT_GE(application["waitingCalls"], waiting.size() - 1);
  EXPECT_EQ(application["wireVersion"], 1);
  EXPECT_EQ(application["version"], "3.4");
}

TEST(Ps, DoesNotShowWhatHasEnded) {
  ChildProcess target = runTarget(makeTarget());
  ASSERT_FALSE(shown(kTarget).is_null());
  target.signal(SIGKILL);
  target.wait();
  ASSERT_TRUE(fs::exists(recordPath(target.pid())));
  EXPECT_TRUE(shown(kTarget).is_null());
  EXPECT_EQ(run({"ps"}).output, "No application takes calls.\n");
}

TEST(Ps, DoesNotKnowTheVersionOfALibraryThatDoesNotRecordIt) {
  const ChildProcess target = runTarget(makeTarget());
  auto record = clientcomm::dictionaryWithContentsOfFile(recordPath(target.pid()));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->erase(clientcomm::kLibraryVersionKey), 1U);
  support::writeFile(recordPath(target.pid()), clientcomm::xmlPropertyList(*record));
  const Json application = shown(kTarget);
  EXPECT_TRUE(application["libraryVersion"].is_null());
  EXPECT_EQ(application["pid"], target.pid());
}

TEST(Ps, ShowsAnApplicationWithoutRecords) {
  const std::string path = makeTarget();
  const ChildProcess target = runTarget(path);
  fs::remove(recordPath(target.pid()));
  const Json application = shown(kTarget);
  EXPECT_EQ(application["pid"], target.pid());
  EXPECT_EQ(application["bundle"], path);
  EXPECT_EQ(application["version"], "3.4");
}

// Root may make the namespaces; other users by a user namespace, in which they have their own IDs.
TEST(Ps, ShowsAnApplicationInAnotherPIDNamespace) {
  if (geteuid() != 0) GTEST_SKIP() << "only root makes a PID namespace without a user namespace";
  const std::string path = makeTarget();
  const ChildProcess inside =
      ChildProcess::spawn({"/usr/bin/env", "unshare", "--pid", "--fork", "--mount-proc",
                           "--kill-child", support::executableOf(path)});
  ASSERT_TRUE(support::waitUntilReachable(kTarget));
  ASSERT_TRUE(support::waitUntil([] { return shown(kTarget)["libraryVersion"].is_string(); }));
  const Json application = shown(kTarget);
  EXPECT_EQ(application["version"], "3.4");
  EXPECT_EQ(application["bundle"], path);
  EXPECT_GE(application["waitingCalls"], 0);
  EXPECT_GT(application["pid"], 1);
}

TEST(Ps, WithoutARuntimeFolderShowsNone) {
  const auto outcome = run({"ps", "--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.json()["applications"], Json::array());
}

TEST(Ps, WithAnArgumentIsAWrongUsage) { EXPECT_EQ(run({"ps", "more"}).status, 2); }

}  // namespace
