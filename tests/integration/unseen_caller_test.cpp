#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// Callers and receivers that do not see each other under /proc: in process-ID namespaces of their
// own, or with an executable that may not be looked at.

namespace {

using support::ChildProcess;
using Words = std::vector<std::string>;

constexpr char kTarget[] = "com.example.target";
constexpr char kOtherTarget[] = "com.example.other";
constexpr char kCaller[] = "com.example.caller";

OSErr note(const std::string& target, const std::string& text) {
  return TQHPAppleEventSender::share().sendEvnet(OptionalString(target), "Echo",
                                                 "note:", Words{text});
}

OptionalString ask(const std::string& target, const std::string& selector, OSErr& status) {
  OptionalString result;
  status = TQHPAppleEventSender::share().sendEvnet(OptionalString(target), "Echo", selector, {},
                                                   &result);
  return result;
}

OptionalString ask(const std::string& target, const std::string& selector) {
  OSErr status = 0;
  const OptionalString result = ask(target, selector, status);
  EXPECT_EQ(status, 0);
  return result;
}

// Opens to events as hosts do, notes a text at each target, asks the first for its notes, and exits
// at once. 0 when all went well.
int callAll(const Words& targets) {
  TQHPAppleEventProcesser::share();
  for (const std::string& target : targets) {
    if (note(target, "from a caller") != 0) _exit(1);
  }
  OSErr status = 0;
  if (ask(targets.front(), "notes", status) != "from a caller\n" || status != 0) _exit(2);
  _exit(0);
}
const support::Role caller("call-all", callAll);

// The same by an application that takes calls itself, as every host does.
const support::Role openCaller("open-and-call-all", [](const Words& targets) {
  TQHPAppleEventProcesser::share();
  return callAll(targets);
});

// Notes a text at each target and exits at once.
int noteAll(const Words& targets) {
  for (const std::string& target : targets) {
    if (note(target, "last words") != 0) _exit(1);
  }
  _exit(0);
}
const support::Role lastWords("note-all", noteAll);

const support::Role undumpable("call-all-undumpable", [](const Words& targets) {
  return prctl(PR_SET_DUMPABLE, 0) == 0 ? callAll(targets) : 3;
});

const support::Role undumpableLastWords("note-all-undumpable", [](const Words& targets) {
  return prctl(PR_SET_DUMPABLE, 0) == 0 ? noteAll(targets) : 3;
});

// Waits for the forked copy of the target, which holds its socket, to be all that is left of it.
const support::Role statusWhenAsked("print-status", [](const Words& targets) {
  int status = 0;
  char line = 0;
  if (read(STDIN_FILENO, &line, 1) == 1) status = note(targets.front(), "too late");
  return status == -600 ? 0 : 1;
});

// Notes a text, waits until it is told to go on, notes another and exits at once.
const support::Role twoNotes("note-wait-note", [](const Words& targets) {
  if (note(targets.front(), "first") != 0) return 1;
  std::puts("ready");
  std::fflush(stdout);
  char line = 0;
  if (read(STDIN_FILENO, &line, 1) != 1) return 2;
  _exit(note(targets.front(), "last") == 0 ? 0 : 3);
});

// Launches the application `arguments[0]` in its own namespaces and calls it.
const support::Role launchAndCall("launch-and-call", [](const Words& arguments) {
  const ChildProcess target = ChildProcess::spawn({arguments.front()});
  if (!support::waitUntilReachable(kTarget)) return 4;
  const bool isNoted = note(kTarget, "from a neighbour") == 0;
  OSErr status = 0;
  const bool isAnswered = ask(kTarget, "notes", status) == "from a neighbour\n";
  return isNoted && isAnswered && ask(kTarget, "caller", status) == kCaller ? 0 : 5;
});

// Asks the target without having handed anything over. @return the status of the reply.
const support::Role askUnknown("ask-unknown", [](const Words& /*targets*/) {
  prctl(PR_SET_DUMPABLE, 0);
  const clientcomm::ScopedFd peer(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(kTarget));
  if (connect(peer.get(), path.address(), clientcomm::SocketPath::size()) != 0) return 1;
  const auto event = clientcomm::AppleEventDescriptor::appleEvent(
      clientcomm::kCallEventClass, clientcomm::kCallEventID, {}, -1, 0);
  clientcomm::sendPacket(peer.get(), clientcomm::PacketKind::kEventWantingReply, 0, event, -1);
  clientcomm::Packet reply;
  if (!support::waitUntil([&] {
        return clientcomm::receivePacket(peer.get(), reply) == clientcomm::ReceiveResult::kPacket;
      })) {
    return 2;
  }
  return reply.status == clientcomm::errAEEventNotPermitted ? 0 : 3;
});

const Words kNamespace = [] {
  Words command{"/usr/bin/env", "unshare", "--pid", "--fork", "--mount-proc", "--kill-child"};
  if (geteuid() != 0) command.emplace_back("--map-root-user");
  return command;
}();

// Root looks at every executable unless it gives that up.
const Words kBound =
    geteuid() == 0 ? Words{"/usr/bin/env", "setpriv", "--bounding-set=-sys_ptrace"} : Words{};

ChildProcess run(const Words& wrapper, const std::string& application, const Words& arguments) {
  Words command = wrapper;
  command.push_back(support::executableOf(application));
  command.insert(command.end(), arguments.begin(), arguments.end());
  return ChildProcess::spawn(command);
}

bool worksHere(Words wrapper) {
  wrapper.emplace_back("/bin/true");
  return ChildProcess::spawn(wrapper).wait() == 0;
}

ChildProcess launch(const Words& wrapper = {}, const std::string& identifier = kTarget) {
  const std::string name = identifier == kTarget ? "Target" : "Other";
  ChildProcess child =
      run(wrapper, support::makeApplication(name, identifier, support::kEchoRole), {});
  EXPECT_TRUE(support::waitUntilReachable(identifier));
  return child;
}

int call(const Words& wrapper, const std::string& role, const Words& targets) {
  return run(wrapper, support::makeApplication("Caller", kCaller, role), targets).wait();
}

class ProcessNamespaces : public testing::Test {
 protected:
  void SetUp() override {
    if (!worksHere(kNamespace)) GTEST_SKIP() << "no process-ID namespace can be made here";
  }
};

TEST_F(ProcessNamespaces, CallsFromOutsideAreCarriedOutInside) {
  const ChildProcess target = launch(kNamespace);
  EXPECT_EQ(note(kTarget, "from outside"), 0);
  EXPECT_EQ(ask(kTarget, "notes"), "from outside\n");
  EXPECT_EQ(ask(kTarget, "caller"), "com.example.testhost");
}

TEST_F(ProcessNamespaces, CallsFromInsideAreCarriedOutOutside) {
  const ChildProcess target = launch();
  EXPECT_EQ(call(kNamespace, "call-all", {kTarget}), 0);
  EXPECT_EQ(ask(kTarget, "notes"), "from a caller\n");
}

TEST_F(ProcessNamespaces, CallsOfAnApplicationThatTakesCallsItselfAreCarriedOut) {
  const ChildProcess target = launch();
  EXPECT_EQ(call(kNamespace, "open-and-call-all", {kTarget}), 0);
  EXPECT_EQ(ask(kTarget, "notes"), "from a caller\n");
}

TEST_F(ProcessNamespaces, CallsBetweenTwoAreCarriedOut) {
  const ChildProcess target = launch(kNamespace);
  EXPECT_EQ(call(kNamespace, "call-all", {kTarget}), 0);
  EXPECT_EQ(call(kNamespace, "call-all", {kTarget, kTarget}), 2);  // two notes more
  EXPECT_EQ(ask(kTarget, "notes"), "from a caller\nfrom a caller\nfrom a caller\n");
}

TEST_F(ProcessNamespaces, CallersThatAreNotSeenAreToldApart) {
  const ChildProcess target = launch(kNamespace);
  EXPECT_EQ(note(kTarget, "first"), 0);
  EXPECT_EQ(call({}, "note-all", {kTarget}), 0);
  EXPECT_EQ(ask(kTarget, "caller"), kCaller);
  EXPECT_EQ(ask(kTarget, "caller"), "com.example.testhost");
}

TEST_F(ProcessNamespaces, LastWordsFromInsideReachEachOfTwoReceiversOutside) {
  const ChildProcess target = launch();
  const ChildProcess other = launch({}, kOtherTarget);
  EXPECT_EQ(ask(kTarget, "notes"), "");
  EXPECT_EQ(ask(kOtherTarget, "notes"), "");
  target.signal(SIGSTOP);  // so that the caller is certainly gone before its calls are looked at
  other.signal(SIGSTOP);
  EXPECT_EQ(call(kNamespace, "note-all", {kTarget, kOtherTarget}), 0);
  target.signal(SIGCONT);
  other.signal(SIGCONT);
  EXPECT_EQ(ask(kTarget, "notes"), "last words\n");
  EXPECT_EQ(ask(kOtherTarget, "notes"), "last words\n");
}

TEST_F(ProcessNamespaces, ReceiverThatIsNotSeenAndHasDiedIsNoRunningApplication) {
  ChildProcess target = launch();
  ChildProcess sender =
      run(kNamespace, support::makeApplication("Caller", kCaller, "print-status"), {kTarget});
  const OptionalString child = ask(kTarget, "fork");
  ASSERT_TRUE(child.has_value());
  target.signal(SIGKILL);
  target.wait();
  sender.write("x");
  EXPECT_EQ(sender.wait(), 0);
  support::sendSignal(clientcomm::intValue(*child), SIGKILL);
}

// Inside, the IDs of the credentials are not those of /proc, and name other processes there.
TEST_F(ProcessNamespaces, ProcOfAnotherNamespaceNamesNoOther) {
  Words withOuterProc = kNamespace;
  std::erase(withOuterProc, "--mount-proc");
  const std::string target = support::makeApplication("Target", kTarget, support::kEchoRole);
  EXPECT_EQ(call(withOuterProc, "launch-and-call", {support::executableOf(target)}), 0);
}

class UnreadableExecutable : public testing::Test {
 protected:
  void SetUp() override {
    if (!kBound.empty() && !worksHere(kBound)) GTEST_SKIP() << "needs setpriv";
  }
};

TEST_F(UnreadableExecutable, CallsAreCarriedOutUnderTheIdentityOfTheOneHandedOver) {
  const ChildProcess target = launch(kBound);
  EXPECT_EQ(call(kBound, "call-all-undumpable", {kTarget}), 0);
  EXPECT_EQ(ask(kTarget, "caller"), kCaller);
}

TEST_F(UnreadableExecutable, LastWordsAreCarriedOut) {
  const ChildProcess target = launch(kBound);
  EXPECT_EQ(ask(kTarget, "notes"), "");
  target.signal(SIGSTOP);
  EXPECT_EQ(call(kBound, "note-all-undumpable", {kTarget}), 0);
  target.signal(SIGCONT);
  EXPECT_EQ(ask(kTarget, "notes"), "last words\n");
}

TEST_F(UnreadableExecutable, QueryOfACallerThatHandedNothingOverIsRefusedWithAStatus) {
  const ChildProcess target = launch(kBound);
  EXPECT_EQ(call(kBound, "ask-unknown", {kTarget}), 0);
}

TEST(LastWords, AreCarriedOutAfterThousandOthersHaveCalled) {
  const ChildProcess target = launch();
  ChildProcess host =
      run({}, support::makeApplication("Caller", kCaller, "note-wait-note"), {kTarget});
  EXPECT_EQ(host.readLine(), "ready");
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(ChildProcess::fork([] { return note(kTarget, "other"); }).wait(), 0);
  }
  OptionalString notes = ask(kTarget, "notes");
  target.signal(SIGSTOP);  // so that the host is certainly gone before its last call is looked at
  host.write("x");
  EXPECT_EQ(host.wait(), 0);
  target.signal(SIGCONT);
  EXPECT_EQ(ask(kTarget, "caller"), kCaller);
  EXPECT_EQ(ask(kTarget, "notes"), notes.value_or("") + "last\n");
}

}  // namespace
