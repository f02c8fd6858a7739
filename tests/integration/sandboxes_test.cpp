#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "tests/support/bubblewrap.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// Hosts and helpers in sandboxes by bubblewrap. This process is the host outside.

namespace {

using support::Bubblewrap;
using support::ChildProcess;
using support::countInJournal;
using support::embedHelper;
namespace fs = std::filesystem;

/// In which a helper would have ended.
constexpr std::chrono::milliseconds kTimeToEnd = std::chrono::seconds(1);

/// A receiver takes a caller for the same application for a second.
constexpr std::chrono::milliseconds kLongestWithoutALook{1100};

constexpr char kHostRole[] = "host-at-command";

OSErr restartStep() { return TQHPHelperCommunicate::share().autoRestartHelper(); }

std::string answerOfHelper() {
  return TQHPHelperCommunicate::share().clientIDFormHelper().value_or("nil");
}

std::string execute(const std::string& command) {
  if (command == "step") return std::to_string(restartStep());
  if (command == "ask") return answerOfHelper();
  if (command == "leave") _exit(TQHPHelperCommunicate::share().stopHelper());
  if (command == "tips off") TQHPHelper::share().setTipsEnable(false);
  return "done";
}

bool hasInput() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, 0) > 0;
}

// A host that executes the commands of its standard input, one on each line, until the input ends.
const support::Role hostAtCommand(kHostRole, [](const std::vector<std::string>& /*arguments*/) {
  TQHPHelper::share();
  std::cout << "ready" << std::endl;
  while (support::runLoopUntil(hasInput, std::chrono::minutes(2))) {
    std::string command;
    if (!std::getline(std::cin, command)) return 0;
    std::cout << execute(command) << std::endl;
  }
  return 1;
});

/// A host in a sandbox.
class SandboxedHost {
 public:
  SandboxedHost(const Bubblewrap& sandbox, const std::string& application)
      : process_(sandbox.run({support::executableOf(application)})) {
    EXPECT_EQ(process_.readLine(), "ready");
  }
  std::string execute(const std::string& command) {
    process_.write(command + "\n");
    return process_.readLine().value_or("ended");
  }
  /// Executes the command until it answers `result`.
  bool executeUntil(const std::string& command, const std::string& result) {
    return support::waitUntil([&] { return execute(command) == result; });
  }
  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
};

class Sandboxes : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string problem = Bubblewrap::problem(); !problem.empty()) {
      GTEST_SKIP() << problem;
    }
    fs::create_directories(installFolder());
    embedHelper("1.0");
  }

  static std::string installFolder() { return support::sandbox() + "/install"; }
  static std::string runtimeFolder() { return std::getenv("XDG_RUNTIME_DIR"); }
  static std::string makeHost(const std::string& name = "inside",
                              const std::string& version = "1.0") {
    return support::makeHost(name, version, kHostRole);
  }
  static std::size_t helpers() { return countInJournal(" up "); }

  /// Runs the host outside until it has started the helper.
  static bool isStartedOutside() {
    TQHPHelper::share();
    return support::waitUntil([] {
      TQHPHelper::share().startHelper();
      return countInJournal("start P100") > 0;
    });
  }
};

// The sandboxes that share the runtime folder: with the processes of this machine, and their own.
class SharedRuntimeFolder : public Sandboxes, public testing::WithParamInterface<bool> {
 protected:
  static Bubblewrap sandbox() {
    Bubblewrap sandbox;
    if (GetParam()) sandbox.withOwnProcesses();
    return sandbox;
  }
};
INSTANTIATE_TEST_SUITE_P(Processes, SharedRuntimeFolder, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Own" : "Shared"; });

TEST_P(SharedRuntimeFolder, HostUsesTheHelperOutside) {
  ASSERT_TRUE(isStartedOutside());
  SandboxedHost host(sandbox(), makeHost());
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  EXPECT_EQ(host.execute("step"), "0");
  EXPECT_EQ(host.execute("ask"), answerOfHelper());
  EXPECT_EQ(helpers(), 1U);
}

TEST_P(SharedRuntimeFolder, HostOutsideUsesTheHelperInside) {
  SandboxedHost host(sandbox(), makeHost());
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  ASSERT_TRUE(isStartedOutside());
  EXPECT_EQ(restartStep(), 0);
  EXPECT_EQ(answerOfHelper(), host.execute("ask"));
  EXPECT_EQ(helpers(), 1U);
}

TEST_P(SharedRuntimeFolder, HostsOfTwoSandboxesShareOneHelper) {
  SandboxedHost first(sandbox(), makeHost("first"));
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start first") > 0; }));
  SandboxedHost second(sandbox(), makeHost("second"));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start second") > 0; }));
  EXPECT_EQ(second.execute("step"), "0");
  EXPECT_EQ(first.execute("ask"), second.execute("ask"));
  EXPECT_EQ(helpers(), 1U);
}

TEST_P(SharedRuntimeFolder, HelperInsideOutlivesItsHost) {
  {
    SandboxedHost host(sandbox(), makeHost());
    ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
    host.process().write("end\n");
    host.process().closeInput();
    EXPECT_EQ(host.process().wait(), 0);
  }
  ASSERT_TRUE(isStartedOutside());
  EXPECT_EQ(restartStep(), 0);
  EXPECT_EQ(helpers(), 1U);
}

TEST_P(SharedRuntimeFolder, HelperInsideEndsWithASandboxThatEndsWithItsHost) {
  SandboxedHost host(sandbox().endingWithFirstProcess(), makeHost());
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  const pid_t helper = support::helperPid();
  host.process().closeInput();
  EXPECT_EQ(host.process().wait(), 0);
  const auto isGone = [helper] { return support::helperPid() != helper; };
  const bool ends = GetParam();
  if (ends) {
    EXPECT_TRUE(support::waitUntil(isGone));
  } else {
    EXPECT_FALSE(support::waitUntil(isGone, kTimeToEnd));
  }
  ASSERT_TRUE(isStartedOutside());
  EXPECT_EQ(restartStep(), 0);
  EXPECT_EQ(helpers(), ends ? 2U : 1U);
}

TEST_P(SharedRuntimeFolder, HostWithItsOwnConfigurationLeavesNoRecordForAHelperOutside) {
  ASSERT_TRUE(isStartedOutside());
  const std::string defaults = support::preferencesPath("com.example.inside");
  const SandboxedHost host(sandbox().withOwnFolder(support::sandbox() + "/config"), makeHost());
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  EXPECT_FALSE(fs::exists(defaults));
}

TEST_P(SharedRuntimeFolder, NewerHelperOfAHostInsideReplacesTheOneOutside) {
  ASSERT_TRUE(isStartedOutside());
  SandboxedHost host(sandbox(), makeHost("inside", "2.0"));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("exit inside") > 0; }));
  EXPECT_TRUE(support::waitUntil(
      [&] { return host.execute("step") == "0" && countInJournal("up 2.0") > 0; }));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("down") == 1; }));
  EXPECT_TRUE(support::waitUntil([&] { return host.execute("ask") == answerOfHelper(); }));
  EXPECT_EQ(helpers(), 2U);
}

TEST_P(SharedRuntimeFolder, NewerHelperOfAHostOutsideReplacesTheOneInside) {
  SandboxedHost host(sandbox(), makeHost("inside", "0.9"));
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  TQHPHelper::share();
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("exit P100") > 0; }));
  EXPECT_TRUE(
      support::waitUntil([] { return restartStep() == 0 && countInJournal("up 1.0") > 0; }));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("down") == 1; }));
  EXPECT_TRUE(support::waitUntil([&] { return host.execute("ask") == answerOfHelper(); }));
  EXPECT_EQ(helpers(), 2U);
}

TEST_P(SharedRuntimeFolder, HelperInsideThatWasKilledIsLaunchedAgainByTheHostOutside) {
  SandboxedHost host(sandbox(), makeHost());
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  ASSERT_TRUE(isStartedOutside());
  const auto processes = support::processesOf(support::installedHelperPath());
  ASSERT_EQ(processes.size(), 1U);
  support::sendSignal(processes.front(), SIGKILL);
  EXPECT_TRUE(support::waitUntil([] { return restartStep() == 0 && helpers() == 2; }));
  EXPECT_TRUE(support::waitUntil([&] { return host.execute("ask") == answerOfHelper(); }));
}

TEST_P(SharedRuntimeFolder, HostWithItsOwnInstallFolderUsesTheHelperOutside) {
  ASSERT_TRUE(isStartedOutside());
  SandboxedHost host(sandbox().withOwnFolder(installFolder()), makeHost("inside", "2.0"));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  EXPECT_EQ(host.execute("step"), "0");
  EXPECT_EQ(host.execute("ask"), answerOfHelper());
  EXPECT_EQ(helpers(), 1U);
}

// The same with a runtime folder of its own.
class OwnRuntimeFolder : public SharedRuntimeFolder {
 protected:
  static Bubblewrap sandbox() {
    return SharedRuntimeFolder::sandbox().withOwnFolder(runtimeFolder());
  }
};
INSTANTIATE_TEST_SUITE_P(Processes, OwnRuntimeFolder, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Own" : "Shared"; });

TEST_P(OwnRuntimeFolder, HostLaunchesAHelperOfItsOwnBesideTheOneOutside) {
  ASSERT_TRUE(isStartedOutside());
  SandboxedHost host(sandbox(), makeHost());
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  EXPECT_EQ(host.execute("step"), "0");
  EXPECT_NE(host.execute("ask"), answerOfHelper());
  EXPECT_EQ(restartStep(), 0);
  EXPECT_EQ(helpers(), 2U);
}

TEST_P(OwnRuntimeFolder, HelperInsideKeepsAHostOutsideFromAnotherOnlyWhereTheirProcessesAreShared) {
  const SandboxedHost host(sandbox(), makeHost());
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  const bool areShared = !GetParam();
  TQHPHelper::share();
  if (areShared) {
    EXPECT_EQ(restartStep(), 1);
    EXPECT_EQ(helpers(), 1U);
  } else {
    EXPECT_TRUE(isStartedOutside());
    EXPECT_EQ(helpers(), 2U);
  }
}

TEST_P(OwnRuntimeFolder, AndInstallFolderMakeTheSandboxAnEnvironmentOfItsOwn) {
  SandboxedHost host(sandbox().withOwnFolder(installFolder()), makeHost());
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  ASSERT_TRUE(isStartedOutside());
  EXPECT_EQ(restartStep(), 0);
  EXPECT_EQ(host.execute("step"), "0");
  EXPECT_NE(host.execute("ask"), answerOfHelper());
  EXPECT_EQ(helpers(), 2U);
}

TEST_P(OwnRuntimeFolder, NewerHelperOfAHostInsideLeavesTheOldOneOutsideRunning) {
  ASSERT_TRUE(isStartedOutside());
  const std::string before = answerOfHelper();
  SandboxedHost host(sandbox(), makeHost("inside", "2.0"));
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("up 2.0") > 0; }));
  EXPECT_EQ(restartStep(), 0);
  EXPECT_EQ(answerOfHelper(), before);
  EXPECT_EQ(countInJournal("exit "), 0U);
}

// A host whose bundle is at a place that is only in its sandbox, as /app in a flatpak.
class BundleInside : public SharedRuntimeFolder {
 protected:
  static std::string place() { return support::sandbox() + "/app"; }
  static std::string bundle() { return place() + "/inside.app"; }
  static Bubblewrap sandboxWithBundle() {
    fs::create_directories(place());
    return sandbox().withOwnFolder(place()).withReadOnly(makeHost(), bundle());
  }
};
INSTANTIATE_TEST_SUITE_P(Processes, BundleInside, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Own" : "Shared"; });

TEST_P(BundleInside, IsKnownToTheHelperOutside) {
  ASSERT_TRUE(isStartedOutside());
  SandboxedHost host(sandboxWithBundle(), bundle());
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  EXPECT_EQ(host.execute("step"), "0");
  EXPECT_EQ(host.execute("ask"), answerOfHelper());
}

TEST_P(BundleInside, IsKnownToTheHelperInAnotherSandbox) {
  const SandboxedHost first(sandbox(), makeHost("first"));
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start first") > 0; }));
  SandboxedHost host(sandboxWithBundle(), bundle());
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  EXPECT_EQ(host.execute("ask"), answerOfHelper());
}

TEST_P(BundleInside, BringsAHelperThatAHostOutsideUses) {
  SandboxedHost host(sandboxWithBundle(), bundle());
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  ASSERT_TRUE(isStartedOutside());
  EXPECT_EQ(host.execute("ask"), answerOfHelper());
  EXPECT_EQ(helpers(), 1U);
}

TEST_P(BundleInside, IsKnownByItsLastWords) {
  ASSERT_TRUE(isStartedOutside());
  SandboxedHost host(sandboxWithBundle(), bundle());
  ASSERT_TRUE(support::waitUntil([] { return countInJournal("start inside") > 0; }));
  const pid_t helper = support::helperPid();
  support::sendSignal(helper, SIGSTOP);  // so that the sandbox is gone before the call is read
  std::this_thread::sleep_for(kLongestWithoutALook);
  host.process().write("leave\n");
  EXPECT_EQ(host.process().wait(), 0);
  support::sendSignal(helper, SIGCONT);
  EXPECT_TRUE(support::waitUntil([] { return countInJournal("stop inside") > 0; }));
}

TEST_P(BundleInside, KeepsItsSwitchesAsTheyAre) {
  SandboxedHost host(sandboxWithBundle(), bundle());
  const std::string info = support::sandbox() + "/hosts/inside.app/Contents/Info.plist";
  const std::string before = support::readFile(info);
  EXPECT_EQ(host.execute("tips off"), "done");
  EXPECT_EQ(host.execute("step"), "0");
  EXPECT_EQ(support::readFile(info), before);
}

TEST_P(BundleInside, WritesASwitchThroughALinkThatLeadsOut) {
  const std::string table = support::sandbox() + "/switches.strings";
  support::writeFile(table, "\"TipsEnable\" = \"1\";\n");
  const std::string before = support::readFile(table);
  const std::string language = "/hosts/inside.app/Contents/Resources/en.lproj";
  fs::create_directories(support::sandbox() + language);
  fs::create_symlink(table, support::sandbox() + language + "/InfoPlist.strings");
  SandboxedHost host(sandboxWithBundle(), bundle());
  EXPECT_EQ(host.execute("tips off"), "done");
  EXPECT_NE(support::readFile(table), before);
}

}  // namespace
