#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/child_process.h"
#include "tests/support/echo_calls.h"
#include "tests/support/peer_build.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// Events between real processes, over the real endpoints.

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;
using clientcomm::ScopedFd;
using std::chrono::milliseconds;
using support::ask;
using support::ChildProcess;
using support::kTarget;
using support::send;
namespace raw = support::raw;
namespace fs = std::filesystem;

AppleEventDescriptor callEvent(const std::string& selector,
                               const std::vector<std::string>& arguments,
                               const std::string& target = kTarget) {
  AppleEventDescriptor event =
      AppleEventDescriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kCallEventID,
                                       {clientcomm::typeApplicationBundleID, target}, -1, 0);
  AppleEventDescriptor list = AppleEventDescriptor::listDescriptor();
  for (const auto& argument : arguments) {
    list.insertDescriptor(AppleEventDescriptor::descriptorWithString(argument), 0);
  }
  AppleEventDescriptor call = AppleEventDescriptor::listDescriptor();
  call.insertDescriptor(AppleEventDescriptor::descriptorWithString("Echo"), 0);
  call.insertDescriptor(AppleEventDescriptor::descriptorWithString(selector), 0);
  call.insertDescriptor(list, 0);
  event.setParamDescriptor(call, clientcomm::keyDirectObject);
  return event;
}

std::string endpointPath(const std::string& identifier) {
  return clientcomm::runtimeFolderPath() + "/" + clientcomm::fileNameForIdentifier(identifier);
}

/// A bare connection to an endpoint, as any program of the user can make one.
ScopedFd connectTo(const std::string& identifier) {
  ScopedFd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(identifier));
  if (connect(fd.get(), path.address(), clientcomm::SocketPath::size()) != 0) fd.reset();
  return fd;
}

/// Waits until the other side closes the connection.
bool isClosedByPeer(const ScopedFd& fd) {
  char byte = 0;
  const timeval limit{20, 0};
  setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  const ssize_t count = recv(fd.get(), &byte, 1, 0);
  return count == 0 || (count < 0 && errno == ECONNRESET);
}

class Transport : public testing::Test {
 protected:
  ChildProcess launch(const std::string& identifier = kTarget, const std::string& name = "Target") {
    ChildProcess child =
        support::runApplication(support::makeApplication(name, identifier, support::kEchoRole));
    EXPECT_TRUE(support::waitUntilReachable(identifier));
    return child;
  }

  /// An application that answers by itself, without classes; see `answer`.
  ChildProcess launchAnswerer() {
    ChildProcess child =
        support::runApplication(support::makeApplication("Target", kTarget, "answerer"));
    EXPECT_TRUE(support::waitUntilReachable(kTarget));
    return child;
  }
};

// Sends the calls that its arguments name to the target and exits at once, without any clean-up.
const support::Role sendAndExit("send-and-exit",
                                [](const std::vector<std::string>& arguments) -> int {
                                  OSErr status = clientcomm::noErr;
                                  for (const std::string& text : arguments) {
                                    if (status == clientcomm::noErr) status = send("note:", {text});
                                  }
                                  _exit(status == clientcomm::noErr ? 0 : 1);
                                });

// Calls the target, and has a forked copy call it that exits at once, as this one does after it.
const support::Role sendFromACopyAndExit(
    "send-from-a-copy-and-exit", [](const std::vector<std::string>& /*arguments*/) -> int {
      const auto note = [](const char* text) { return send("note:", {text}) == clientcomm::noErr; };
      const bool isSent = note("first");
      ChildProcess copy = ChildProcess::fork([&] { return note("copy") ? 0 : 1; });
      const bool isCopySent = copy.wait() == 0;
      _exit(isSent && isCopySent && note("last") ? 0 : 1);
    });

// Notes `arguments[0]` numbered texts at the target.
const support::Role sendMany("send-many", [](const std::vector<std::string>& arguments) {
  const int count = clientcomm::intValue(arguments.at(0));
  for (int i = 0; i < count; ++i) {
    if (send("note:", {arguments.at(1) + std::to_string(i)}) != clientcomm::noErr) return 1;
  }
  return 0;
});

// The number of the call's arguments, or what its selector asks for.
OSErr answer(AppleEventDescriptor event, AppleEventDescriptor& reply) {
  const auto* const call = event.paramDescriptorForKeyword(clientcomm::keyDirectObject);
  const OptionalString selector = call->descriptorAtIndex(2)->stringValue();
  AppleEventDescriptor result = AppleEventDescriptor::descriptorWithString(
      std::to_string(call->descriptorAtIndex(3)->numberOfItems()));
  if (selector == "a large reply") {
    result = AppleEventDescriptor::descriptorWithString(
        std::string(clientcomm::kMaximumFlattenedSize, 'x'));
  } else if (selector == "a reply of many") {
    result = AppleEventDescriptor::listDescriptor();
    for (std::size_t i = 0; i < clientcomm::kMaximumDescriptors; ++i)
      result.insertDescriptor({}, 0);
  } else if (selector == "a reply that is no event") {
    reply = {};
  } else if (selector == "ask back") {
    AppleEventDescriptor unused;
    const OSErr status =
        clientcomm::AESendMessage(callEvent("say:", {"x"}, "com.example.testhost"), unused,
                                  clientcomm::kAEWaitReply, clientcomm::kNoTimeOut);
    result = AppleEventDescriptor::descriptorWithString(std::to_string(status));
  }
  reply.setParamDescriptor(std::move(result), clientcomm::keyDirectObject);
  return clientcomm::noErr;
}

const support::Role answerer("answerer", [](const std::vector<std::string>& /*arguments*/) {
  clientcomm::AppleEventManager::sharedAppleEventManager().setEventHandler(
      answer, clientcomm::kCallEventClass, clientcomm::kCallEventID);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
});

TEST_F(Transport, TextGoesThereAndBackAndTheCallerIsKnown) {
  const ChildProcess target = launch();
  OSErr status = -1;
  EXPECT_EQ(ask("say:", {"hello"}, &status), "hello");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ask("caller", {}), "com.example.testhost");
}

TEST_F(Transport, SendToAnApplicationThatDoesNotRunSaysProcessNotFound) {
  EXPECT_EQ(send("note:", {"x"}, "com.example.absent"), -600);
  OSErr status = 0;
  EXPECT_EQ(ask("say:", {"x"}, &status, "com.example.absent"), std::nullopt);
  EXPECT_EQ(status, -600);
}

TEST_F(Transport, StaleSocketFileOfAKilledApplicationIsNotARunningApplication) {
  ChildProcess target = launch();
  EXPECT_EQ(send("note:", {"x"}), 0);
  target.signal(SIGKILL);
  target.wait();
  ASSERT_TRUE(fs::exists(fs::symlink_status(endpointPath(kTarget))));
  EXPECT_EQ(send("note:", {"x"}), -600);
  const ChildProcess again = launch();
  EXPECT_EQ(ask("say:", {"back"}), "back");
}

TEST_F(Transport, ApplicationThatExitsTakesItsSocketFileAway) {
  ChildProcess target = launch();
  EXPECT_EQ(send("quit", {}), 0);
  EXPECT_EQ(target.wait(), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(endpointPath(kTarget))));
}

TEST_F(Transport, SocketHeldOpenByAForkedChildIsNotARunningApplication) {
  ChildProcess target = launch();
  const OptionalString child = ask("fork", {});
  ASSERT_TRUE(child.has_value());
  target.signal(SIGKILL);
  target.wait();
  EXPECT_EQ(kill(clientcomm::intValue(*child), 0), 0);
  EXPECT_EQ(send("note:", {"x"}), -600);
  support::sendSignal(clientcomm::intValue(*child), SIGKILL);
}

TEST_F(Transport, RegularFileInThePlaceOfTheEndpointIsNoApplication) {
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  support::writeFile(endpointPath(kTarget), "not a socket");
  EXPECT_EQ(send("note:", {"x"}), -600);
  const ChildProcess target = launch();
  EXPECT_EQ(ask("say:", {"in its place"}), "in its place");
}

TEST_F(Transport, CallOfAProcessThatSendsAndExitsAtOnceIsCarriedOutUnderItsIdentity) {
  const ChildProcess target = launch();
  const std::string caller =
      support::makeApplication("Caller", "com.example.caller", "send-and-exit");
  EXPECT_EQ(ask("notes", {}), "");
  target.signal(SIGSTOP);  // so that the caller is certainly gone before the call is looked at
  ChildProcess sender = support::runApplication(caller, {"one", "two", "three"});
  EXPECT_EQ(sender.wait(), 0);
  target.signal(SIGCONT);
  EXPECT_EQ(ask("caller", {}), "com.example.caller");
  EXPECT_EQ(ask("notes", {}), "one\ntwo\nthree\n");
}

TEST_F(Transport, ForkedCopyOfACallerThatExitsAtOnceIsKnownTooAndItsOriginalAfterIt) {
  const ChildProcess target = launch();
  const std::string caller =
      support::makeApplication("Caller", "com.example.caller", "send-from-a-copy-and-exit");
  EXPECT_EQ(ask("notes", {}), "");
  target.signal(SIGSTOP);  // so that both are certainly gone before their calls are looked at
  ChildProcess sender = support::runApplication(caller);
  EXPECT_EQ(sender.wait(), 0);
  target.signal(SIGCONT);
  EXPECT_EQ(ask("caller", {}), "com.example.caller");
  EXPECT_EQ(ask("notes", {}), "first\ncopy\nlast\n");
}

TEST_F(Transport, EndedProcessIsNotKnownByATokenWithoutAHandshake) {
  const ChildProcess target = launch();
  EXPECT_EQ(ask("notes", {}), "");
  target.signal(SIGSTOP);
  ChildProcess stranger = ChildProcess::fork([] {
    const ScopedFd peer = connectTo(kTarget);
    return clientcomm::sendPacket(peer.get(), clientcomm::PacketKind::kEvent, 0,
                                  callEvent("note:", {"x"}), -1, 0x1234567);
  });
  EXPECT_EQ(stranger.wait(), 0);
  target.signal(SIGCONT);
  EXPECT_EQ(ask("notes", {}), "");
}

TEST_F(Transport, ThousandEventsOfOneSenderAreCarriedOutInOrder) {
  const ChildProcess target = launch();
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(send("note:", {std::to_string(i)}), 0);
    expected += std::to_string(i) + "\n";
  }
  EXPECT_EQ(ask("notes", {}), expected);
}

TEST_F(Transport, EventsOfSixSendersAtOnceAllArriveEachSendersInOrder) {
  const ChildProcess target = launch();
  const std::string caller = support::makeApplication("Many", "com.example.many", "send-many");
  std::vector<ChildProcess> senders;
  for (char name = 'a'; name < 'g'; ++name) {
    senders.push_back(support::runApplication(caller, {"500", std::string(1, name)}));
  }
  for (ChildProcess& sender : senders) EXPECT_EQ(sender.wait(), 0);
  const std::string notes = ask("notes", {}).value_or("");
  std::map<char, int> next;
  std::size_t lines = 0;
  for (std::size_t at = 0; at < notes.size(); at = notes.find('\n', at) + 1, ++lines) {
    EXPECT_EQ(clientcomm::intValue(std::string_view(notes).substr(at + 1)), next[notes[at]]++);
  }
  EXPECT_EQ(lines, 3000U);
}

TEST_F(Transport, SilentPeersDoNotHoldUpAnotherSendersEvents) {
  const ChildProcess target = launch();
  std::vector<ScopedFd> silent;
  for (int i = 0; i < 300; ++i) {
    silent.push_back(connectTo(kTarget));
    ASSERT_TRUE(silent.back().isValid());
  }
  EXPECT_EQ(ask("say:", {"through"}), "through");
  // Of so many the oldest are sent away.
  EXPECT_TRUE(isClosedByPeer(silent.front()));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(send("note:", {std::to_string(i)}), 0);
  EXPECT_TRUE(ask("notes", {}).value_or("").ends_with("99\n"));
}

/// A packet that has the target note `text`.
std::string notePacket(raw::Header header, std::string_view text) {
  return raw::packet(
      header, raw::event(kTarget, clientcomm::kCallEventID,
                         {{clientcomm::keyDirectObject, raw::callList("Echo", "note:", text)}}));
}

TEST_F(Transport, PeerThatSendsRubbishIsDisconnectedAndCostsNoEvent) {
  const ChildProcess target = launch();
  raw::Header wrongMagic;
  wrongMagic.magic = clientcomm::fourCharCode("PHQT");
  raw::Header wrongVersion;
  wrongVersion.version = 0;
  raw::Header wrongKind;
  wrongKind.kind = 5;
  const std::string packets[] = {std::string(1, 'x'),
                                 std::string(16, '\0'),
                                 std::string(60000, '\xff'),
                                 notePacket(wrongMagic, "wrong magic"),
                                 notePacket(wrongVersion, "wrong version"),
                                 notePacket(wrongKind, "wrong kind")};
  for (const std::string& packet : packets) {
    const ScopedFd peer = connectTo(kTarget);
    ASSERT_TRUE(raw::send(peer.get(), packet));
    EXPECT_EQ(ask("say:", {"alive"}), "alive");
    EXPECT_TRUE(isClosedByPeer(peer));
  }
  ASSERT_TRUE(raw::send(connectTo(kTarget).get(), notePacket({}, "control")));
  EXPECT_EQ(ask("notes", {}), "control\n");
}

TEST_F(Transport, HalfAnEventIsDisconnectedAndCostsNoEvent) {
  const ChildProcess target = launch();
  const std::string whole = notePacket({}, "half");
  for (const std::size_t length : {whole.size() - 1, whole.size() / 2,
                                   clientcomm::kPacketHeaderSize, clientcomm::kPacketPrefixSize}) {
    const ScopedFd peer = connectTo(kTarget);
    ASSERT_TRUE(raw::send(peer.get(), whole.substr(0, length)));
    EXPECT_TRUE(isClosedByPeer(peer));
  }
  ASSERT_TRUE(raw::send(connectTo(kTarget).get(), notePacket({}, "control")));
  EXPECT_EQ(ask("notes", {}), "control\n");
}

TEST_F(Transport, SilentPeerThatSpeaksInTheEndIsServed) {
  const ChildProcess target = launch();
  const ScopedFd peer = connectTo(kTarget);
  EXPECT_EQ(ask("say:", {"meanwhile"}), "meanwhile");
  const ScopedFd executable(open("/proc/self/exe", O_PATH | O_CLOEXEC));
  EXPECT_EQ(clientcomm::sendPacket(peer.get(), clientcomm::PacketKind::kEvent, 0,
                                   callEvent("note:", {"late"}), executable.get()),
            0);
  EXPECT_TRUE(isClosedByPeer(peer));
  EXPECT_EQ(ask("notes", {}), "late\n");
}

TEST_F(Transport, ApplicationThatDiesDuringAQueryDoesNotLeaveTheCallerWaiting) {
  ChildProcess target = launch();
  ChildProcess killer = ChildProcess::fork([&] {
    support::waitUntil([] { return false; }, milliseconds(200));
    target.signal(SIGKILL);
    return 0;
  });
  OSErr status = 0;
  EXPECT_EQ(ask("sleep:", {"60000"}, &status), std::nullopt);
  EXPECT_EQ(status, -609);
  killer.wait();
}

TEST_F(Transport, ApplicationThatDiesWithoutHavingAcceptedAQueryDoesNotLeaveTheCallerWaiting) {
  ChildProcess target = launch();
  target.signal(SIGSTOP);
  ChildProcess killer = ChildProcess::fork([&] {
    support::waitUntil([] { return false; }, milliseconds(200));
    target.signal(SIGKILL);
    return 0;
  });
  OSErr status = 0;
  EXPECT_EQ(ask("say:", {"x"}, &status), std::nullopt);
  EXPECT_EQ(status, -609);
  killer.wait();
}

TEST_F(Transport, SlowApplicationIsNotGivenUp) {
  const ChildProcess target = launch();
  EXPECT_EQ(send("sleep:", {"2500"}), 0);
  OSErr status = -1;
  EXPECT_EQ(ask("say:", {"at last"}, &status), "at last");
  EXPECT_EQ(status, 0);
}

TEST_F(Transport, QueryWithATimeOutGivesUpInTime) {
  const ChildProcess target = launch();
  target.signal(SIGSTOP);
  AppleEventDescriptor reply;
  EXPECT_EQ(
      clientcomm::AESendMessage(callEvent("say:", {"x"}), reply, clientcomm::kAEWaitReply, 20),
      -1712);
  target.signal(SIGCONT);
}

TEST_F(Transport, FullQueueOfAStoppedApplicationIsATimeOutNotAHang) {
  const ChildProcess target = launch();
  target.signal(SIGSTOP);
  std::vector<ScopedFd> waiting = raw::fillQueue(kTarget);
  AppleEventDescriptor reply;
  EXPECT_EQ(clientcomm::AESendMessage(callEvent("note:", {"x"}), reply, clientcomm::kAENoReply, 20),
            -1712);
  waiting.clear();
  target.signal(SIGCONT);
  EXPECT_EQ(ask("notes", {}), "");  // what was refused was not carried out
}

TEST_F(Transport, IdentifierOfTwoHundredCharactersIsReached) {
  const std::string identifier = "com.example." + std::string(188, 'x');
  const ChildProcess target = launch(identifier);
  EXPECT_EQ(ask("say:", {"long"}, nullptr, identifier), "long");
}

TEST_F(Transport, LongRuntimeFolderIsUsable) {
  const std::string folder =
      support::sandbox() + "/" + std::string(120, 'r') + "/" + std::string(120, 'f');
  fs::create_directories(folder);
  chmod(folder.c_str(), 0700);
  setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
  ChildProcess target = launch();
  EXPECT_EQ(ask("say:", {"far away"}), "far away");
  EXPECT_EQ(send("quit", {}), 0);
  EXPECT_EQ(target.wait(), 0);
  EXPECT_TRUE(fs::is_empty(folder + "/ClientComm"));
}

TEST_F(Transport, PathThatIsNotUtf8AndEmbeddedNulArriveByteForByte) {
  const ChildProcess target = launch();
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(ask("say:", {all}), all);
  const std::string path = "/tmp/caf\xe9.log";
  EXPECT_EQ(ask("say:", {path}), path);
  const std::string nul("a\0b", 3);
  EXPECT_EQ(ask("say:", {nul}), nul);
}

TEST_F(Transport, ArgumentOf16MiBGoesThereAndBack) {
  const ChildProcess target = launch();
  std::string large(std::size_t{16} << 20, 'm');
  for (std::size_t i = 0; i < large.size(); i += 4093) large[i] = static_cast<char>(i);
  EXPECT_TRUE(ask("say:", {large}) == large);
  EXPECT_EQ(send("note:", {large}), 0);
  EXPECT_TRUE(ask("notes", {}) == large + "\n");
}

TEST_F(Transport, ArgumentsFromNothingUpToTheLimitArrive) {
  constexpr std::size_t kRoomForTheRest = 1024;  // class, selector, target and headers
  const ChildProcess target = launch();
  for (std::size_t size = 1; size <= clientcomm::kMaximumFlattenedSize; size *= 16) {
    const std::string text(size == clientcomm::kMaximumFlattenedSize ? 0 : size - 1, 's');
    EXPECT_TRUE(ask("say:", {text}) == text) << text.size();
  }
  const std::string largest(clientcomm::kMaximumFlattenedSize - kRoomForTheRest, 'l');
  EXPECT_TRUE(ask("say:", {largest}) == largest);
  EXPECT_EQ(send("note:", {std::string(clientcomm::kMaximumFlattenedSize, 'x')}), -108);
}

TEST_F(Transport, TwoHundredThousandArgumentsArrive) {
  const ChildProcess target = launchAnswerer();
  EXPECT_EQ(ask("count", std::vector<std::string>(200'000, "argument")), "200000");
}

TEST_F(Transport, ApplicationHasTheWordSizeOfTheBuildThatItIsTakenFrom) {
  const ChildProcess target = launch();
  constexpr std::size_t kClass = 4;  // EI_CLASS of an ELF header: 1 for 32 bits, 2 for 64
  const int elfClass = support::readFile(support::applicationProgram()).at(kClass);
  EXPECT_EQ(ask("wordSize", {}), elfClass == 1 ? "32" : "64");
}

TEST_F(Transport, SizesAroundTheLargestPacketArrive) {
  const ChildProcess target = launch();
  for (const std::size_t size : {0UL, 1UL, 900UL, 1024UL, 65300UL, 65400UL, 65536UL, 131072UL}) {
    const std::string text(size, 's');
    EXPECT_TRUE(ask("say:", {text}) == text) << size;
  }
}

TEST_F(Transport, EventThatCannotBeCarriedIsRefusedWithAStatus) {
  const ChildProcess target = launch();
  EXPECT_EQ(send("note:", {std::string(std::size_t{65} << 20, 'x')}), -108);
  EXPECT_EQ(ask("notes", {}), "");
}

// Six descriptors are the event's own: itself, its target, and the call with its three items.
constexpr std::size_t kMostArguments = clientcomm::kMaximumDescriptors - 6;

TEST_F(Transport, AsManyArgumentsAsAReceiverTakesArriveAndOneMoreIsRefused) {
  const ChildProcess target = launchAnswerer();
  OSErr status = -1;
  EXPECT_EQ(ask("count", std::vector<std::string>(kMostArguments), &status),
            std::to_string(kMostArguments));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ask("count", std::vector<std::string>(kMostArguments + 1), &status), std::nullopt);
  EXPECT_EQ(status, -108);
  EXPECT_EQ(send("count", std::vector<std::string>(kMostArguments + 1)), -108);
}

TEST_F(Transport, EventThatCannotBeCarriedIsRefusedBeforeItsTargetIsLookedFor) {
  EXPECT_EQ(send("note:", std::vector<std::string>(kMostArguments + 1), "com.example.absent"),
            -108);
  EXPECT_EQ(send("note:", {std::string(std::size_t{65} << 20, 'x')}, "com.example.absent"), -108);
}

TEST_F(Transport, EventThatNestsTooDeepOrHasTooManyKeywordsIsRefused) {
  const ChildProcess target = launch();
  AppleEventDescriptor reply;
  AppleEventDescriptor nested;
  for (int i = 0; i < clientcomm::kMaximumNesting; ++i) {
    AppleEventDescriptor outer = AppleEventDescriptor::listDescriptor();
    outer.insertDescriptor(std::move(nested), 0);
    nested = std::move(outer);
  }
  AppleEventDescriptor deep = callEvent("note:", {"deep"});
  deep.setParamDescriptor(std::move(nested), clientcomm::fourCharCode("deep"));
  EXPECT_EQ(clientcomm::AESendMessage(deep, reply, clientcomm::kAENoReply, -1), -108);
  AppleEventDescriptor wide = callEvent("note:", {"wide"});
  for (clientcomm::AEKeyword key = 0; key < clientcomm::kMaximumKeywords; ++key) {
    wide.setParamDescriptor({}, key);
  }
  EXPECT_EQ(clientcomm::AESendMessage(wide, reply, clientcomm::kAENoReply, -1), -108);
  EXPECT_EQ(ask("notes", {}), "");
}

TEST_F(Transport, ReplyThatCannotBeCarriedIsAnsweredWithAStatus) {
  const ChildProcess target = launchAnswerer();
  OSErr status = 0;
  EXPECT_EQ(ask("a large reply", {}, &status), std::nullopt);
  EXPECT_EQ(status, -108);
  EXPECT_EQ(ask("a reply of many", {}, &status), std::nullopt);
  EXPECT_EQ(status, -108);
  EXPECT_EQ(ask("a reply that is no event", {}, &status), std::nullopt);
  EXPECT_EQ(status, -50);
  EXPECT_EQ(ask("count", {}, &status), "0");
  EXPECT_EQ(status, 0);
}

TEST_F(Transport, LimitsHoldForAProcessThatCallsItselfToo) {
  const char kSelf[] = "com.example.testhost";
  clientcomm::AppleEventManager::sharedAppleEventManager().setEventHandler(
      answer, clientcomm::kCallEventClass, clientcomm::kCallEventID);
  OSErr status = -1;
  EXPECT_EQ(ask("count", {"a"}, &status, kSelf), "1");
  EXPECT_EQ(status, 0);
  ask("count", std::vector<std::string>(kMostArguments + 1), &status, kSelf);
  EXPECT_EQ(status, -108);
  EXPECT_EQ(ask("a reply of many", {}, &status, kSelf), std::nullopt);
  EXPECT_EQ(status, -108);
}

// The one that is asked asks its caller in turn, which waits and cannot answer.
TEST_F(Transport, QueryToACallerThatWaitsForItsOwnAnswerIsGivenUpAtOnce) {
  TQHPAppleEventProcesser::share();
  const ChildProcess target = launchAnswerer();
  AppleEventDescriptor reply;
  constexpr std::int32_t kLimit = 60 * clientcomm::kTicksPerSecond;
  ASSERT_EQ(
      clientcomm::AESendMessage(callEvent("ask back", {}), reply, clientcomm::kAEWaitReply, kLimit),
      0);
  EXPECT_EQ(reply.paramDescriptorForKeyword(clientcomm::keyDirectObject)->stringValue(), "-1712");
}

TEST_F(Transport, EventWithoutHandlerIsAnsweredWithAStatus) {
  const ChildProcess target = launch();
  const AppleEventDescriptor event = AppleEventDescriptor::appleEvent(
      clientcomm::kCallEventClass, clientcomm::fourCharCode("quit"),
      {clientcomm::typeApplicationBundleID, kTarget}, -1, 0);
  AppleEventDescriptor reply;
  EXPECT_EQ(clientcomm::AESendMessage(event, reply, clientcomm::kAEWaitReply, -1), -1708);
}

TEST_F(Transport, MalformedRequestsAreRefusedBeforeTheyAreSent) {
  AppleEventDescriptor reply;
  EXPECT_EQ(clientcomm::AESendMessage({}, reply, 1, -1), -50);
  EXPECT_EQ(clientcomm::AESendMessage(callEvent("a", {}), reply, 2, -1), -50);
  EXPECT_EQ(clientcomm::AESendMessage(callEvent("a", {}), reply, 1, -3), -50);
  EXPECT_EQ(clientcomm::AESendMessage(callEvent("a", {}, ""), reply, 1, -1), -600);
}

TEST_F(Transport, MessageThatClaimsAnotherSenderIsTakenForWhatItsSenderIs) {
  const ChildProcess target = launch();
  AppleEventDescriptor event = callEvent("note:", {"claimed"});
  std::string psn(8, '\0');
  const std::int32_t pid = target.pid();
  std::memcpy(psn.data() + 4, &pid, sizeof pid);
  event.setAttributeDescriptor({clientcomm::typeProcessSerialNumber, psn},
                               clientcomm::keyAddressAttr);
  AppleEventDescriptor reply;
  EXPECT_EQ(clientcomm::AESendMessage(event, reply, 1, -1), 0);
  EXPECT_EQ(ask("caller", {}), "com.example.testhost");
}

TEST_F(Transport, CallerOutsideAnyBundleIsNotServed) {
  const ChildProcess target = launch();
  EXPECT_EQ(ask("notes", {}), "");
  const std::string program = support::sandbox() + "/no-bundle";
  fs::copy_file("/bin/sleep", program);
  target.signal(SIGSTOP);  // so that the call is looked at when the other program runs
  const ChildProcess outsider = ChildProcess::fork([&] {
    const ScopedFd own = connectTo(kTarget);
    const ScopedFd claimed(open("/proc/self/exe", O_PATH | O_CLOEXEC));
    clientcomm::sendPacket(own.get(), clientcomm::PacketKind::kEvent, 0, callEvent("note:", {"x"}),
                           claimed.get());
    return execl(program.c_str(), program.c_str(), "60", nullptr);
  });
  const std::string link = "/proc/" + std::to_string(outsider.pid()) + "/exe";
  ASSERT_TRUE(support::waitUntil([&] { return fs::read_symlink(link) == program; }));
  target.signal(SIGCONT);
  EXPECT_EQ(ask("notes", {}), "");
}

TEST_F(Transport, PeerOfAnotherUserIsNotServed) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  const ChildProcess target = launch();
  ChildProcess other = ChildProcess::fork([] {
    // Files are opened as root, so that no folder's mode keeps this user out.
    if (setegid(65534) != 0 || seteuid(65534) != 0) return 1;
    setfsuid(0);
    const ScopedFd peer = connectTo(kTarget);
    if (!peer.isValid()) return 2;
    clientcomm::sendPacket(peer.get(), clientcomm::PacketKind::kEventWantingReply, 0,
                           callEvent("note:", {"foreign"}), -1);
    // The library's own send refuses before it has said anything.
    return isClosedByPeer(peer) && send("note:", {"x"}) == -1743 ? 0 : 3;
  });
  EXPECT_EQ(other.wait(), 0);
  EXPECT_EQ(ask("notes", {}), "");
}

TEST_F(Transport, NewerProcessOfAnApplicationHasItsNameAndAnOlderTakesItBack) {
  const std::string path = support::makeApplication("Target", kTarget, support::kEchoRole);
  const ChildProcess older = support::runApplication(path, {support::kTicking});
  ASSERT_TRUE(support::waitUntilReachable(kTarget));
  EXPECT_EQ(send("note:", {"to the older"}), 0);
  ASSERT_EQ(ask("notes", {}), "to the older\n");
  ChildProcess newer = support::runApplication(path);
  ASSERT_TRUE(support::waitUntil([] { return ask("notes", {}) == ""; }));
  EXPECT_EQ(send("quit", {}), 0);
  EXPECT_EQ(newer.wait(), 0);
  EXPECT_TRUE(support::waitUntil([] { return ask("notes", {}) == "to the older\n"; }));
}

TEST_F(Transport, EndpointWhoseFileWasClearedAwayComesBackWithTheNextSend) {
  TQHPAppleEventProcesser::share();
  const std::string own = endpointPath("com.example.testhost");
  ASSERT_TRUE(fs::exists(fs::symlink_status(own)));
  fs::remove_all(clientcomm::runtimeFolderPath());
  EXPECT_TRUE(support::runLoopUntil([&] {
    send("note:", {"x"}, "com.example.absent");
    return fs::exists(fs::symlink_status(own));
  }));
  EXPECT_EQ(send("note:", {"x"}, "com.example.testhost"), 0);
}

TEST_F(Transport, EventThatWaitsAtAClearedAwayEndpointIsStillCarriedOut) {
  int handled = 0;
  auto& manager = clientcomm::AppleEventManager::sharedAppleEventManager();
  manager.setEventHandler(
      [&](const AppleEventDescriptor&, AppleEventDescriptor&) {
        ++handled;
        return clientcomm::noErr;
      },
      clientcomm::kCallEventClass, clientcomm::kCallEventID);
  EXPECT_EQ(send("note:", {"waits"}, "com.example.testhost"), 0);
  fs::remove(endpointPath("com.example.testhost"));
  EXPECT_TRUE(support::runLoopUntil([&] {
    send("note:", {"x"}, "com.example.absent");
    return handled == 1 && fs::exists(fs::symlink_status(endpointPath("com.example.testhost")));
  }));
}

TEST_F(Transport, RuntimeFolderReplacedByALinkIsNotUsedAndMendedWhenItIsGone) {
  const std::string folder = clientcomm::runtimeFolderPath();
  fs::create_directory(support::sandbox() + "/elsewhere");
  fs::create_directory_symlink(support::sandbox() + "/elsewhere", folder);
  TQHPAppleEventProcesser::share();
  EXPECT_TRUE(fs::is_empty(support::sandbox() + "/elsewhere"));
  fs::remove(folder);
  EXPECT_TRUE(support::runLoopUntil([&] {
    send("note:", {"x"}, "com.example.absent");
    return fs::exists(fs::symlink_status(endpointPath("com.example.testhost")));
  }));
}

TEST_F(Transport, ProcessCanCallItself) {
  TQHPAppleEventProcesser::share();
  OSErr status = -1;
  EXPECT_EQ(ask("say:", {"x"}, &status, "com.example.testhost"), std::nullopt);  // no such class
  EXPECT_EQ(status, 0);
}

TEST_F(Transport, HandlerMayCloseTheApplicationToEvents) {
  auto& manager = clientcomm::AppleEventManager::sharedAppleEventManager();
  int handled = 0;
  manager.setEventHandler(
      [&](const AppleEventDescriptor&, AppleEventDescriptor&) {
        ++handled;
        manager.removeEventHandler(clientcomm::kCallEventClass, clientcomm::kCallEventID);
        return clientcomm::noErr;
      },
      clientcomm::kCallEventClass, clientcomm::kCallEventID);
  EXPECT_EQ(send("a", {}, "com.example.testhost"), 0);
  EXPECT_EQ(send("b", {}, "com.example.testhost"), 0);
  EXPECT_TRUE(support::runLoopUntil([&] { return handled > 0; }));
  EXPECT_EQ(send("c", {}, "com.example.testhost"), -600);
  EXPECT_EQ(handled, 1);
}

TEST_F(Transport, EventsWaitWhileAHandlerRunsAMainLoopOfItsOwnAndDoNotKeepItBusy) {
  const char kSelf[] = "com.example.testhost";
  TQHPAppleEventProcesser::share();
  const ScopedFd silent = connectTo(kSelf);
  int handled = 0;
  int depth = 0;
  int turns = 0;
  clientcomm::AppleEventManager::sharedAppleEventManager().setEventHandler(
      [&](const AppleEventDescriptor&, AppleEventDescriptor&) {
        EXPECT_EQ(++depth, 1);
        if (++handled == 1) {
          EXPECT_EQ(send("note:", {"x"}, kSelf), 0);
          EXPECT_EQ(::send(silent.get(), "x", 1, MSG_NOSIGNAL), 1);
          bool isOver = false;
          const auto end = [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
          };
          g_timeout_add(100, end, &isOver);
          while (!isOver) {
            g_main_context_iteration(nullptr, TRUE);
            ++turns;
          }
        }
        --depth;
        return clientcomm::noErr;
      },
      clientcomm::kCallEventClass, clientcomm::kCallEventID);
  EXPECT_EQ(send("note:", {"x"}, kSelf), 0);
  EXPECT_TRUE(support::runLoopUntil([&] { return handled == 2; }));
  EXPECT_LT(turns, 100);
  EXPECT_TRUE(support::runLoopUntil([&] {
    char byte = 0;
    return recv(silent.get(), &byte, 1, MSG_DONTWAIT) == 0;
  }));
}

TEST_F(Transport, ApplicationOutOfDescriptorsTakesTheEventsWhenItHasSomeAgain) {
  TQHPAppleEventProcesser::share();
  const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier("com.example.testhost"));
  int handled = 0;
  clientcomm::AppleEventManager::sharedAppleEventManager().setEventHandler(
      [&](const AppleEventDescriptor&, AppleEventDescriptor&) {
        ++handled;
        return clientcomm::noErr;
      },
      clientcomm::kCallEventClass, clientcomm::kCallEventID);
  EXPECT_EQ(send("note:", {"x"}, "com.example.testhost"), 0);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(send("note:", {"x"}, kTarget), -108);
  EXPECT_FALSE(support::runLoopUntil([&] { return handled > 0; }, milliseconds(300)));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_TRUE(support::runLoopUntil([&] { return handled == 1; }));
}

TEST_F(Transport, AfterEverythingAProcessHasOneThreadAndOneDescriptorMore) {
  g_main_context_default();  // the host's own: it runs a main loop
  const int before = support::openDescriptorCount();
  TQHPAppleEventProcesser::share();
  {
    const ChildProcess target = launch();
    const int child = support::openDescriptorCount() - before - 1;  // the test's own pipes
    EXPECT_EQ(ask("say:", {std::string(200000, 'x')}).value_or("").size(), 200000U);
    for (int i = 0; i < 50; ++i) EXPECT_EQ(send("note:", {"x"}), 0);
    EXPECT_EQ(send("note:", {"x"}, "com.example.testhost"), 0);
    EXPECT_EQ(send("note:", {"x"}, "com.example.absent"), -600);
    const ScopedFd rubbish = connectTo("com.example.testhost");
    ::send(rubbish.get(), "x", 1, MSG_NOSIGNAL);
    EXPECT_TRUE(support::runLoopUntil([&] {
      char byte = 0;
      return recv(rubbish.get(), &byte, 1, MSG_DONTWAIT) == 0;
    }));
    EXPECT_EQ(support::openDescriptorCount(), before + 1 + child + 1);  // and `rubbish`
  }
  EXPECT_EQ(support::openDescriptorCount(), before + 1);
  EXPECT_EQ(support::threadCount(), 1);
}

}  // namespace
