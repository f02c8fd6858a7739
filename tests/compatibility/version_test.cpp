#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/linux/socket_transport.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/compatibility/raw_endpoint.h"
#include "tests/support/child_process.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// Senders and receivers of version 1, and of a version 2 that exists in these tests only: it has
// the layout of version 1 and another number, so that version 1 has to refuse it.

namespace {

using clientcomm::OptionalString;
using clientcomm::ScopedFd;
using clientcomm::WireVersion;
using support::ChildProcess;
using Words = std::vector<std::string>;
namespace raw = support::raw;

constexpr char kTarget[] = "com.example.target";
constexpr WireVersion kVersions[] = {1, 2};

void useVersion(WireVersion version) {
  clientcomm::AppleEventManager::sharedAppleEventManager().setTransport(
      std::make_unique<clientcomm::SocketTransport>(version));
}

// An echo application that serves the versions up to its argument.
const support::Role versionedEcho("versioned-echo", [](const Words& arguments) {
  useVersion(static_cast<WireVersion>(clientcomm::intValue(arguments.at(0))));
  return support::runRole(support::kEchoRole, {});
});

OSErr note(const std::string& text) {
  return TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Echo",
                                                 "note:", Words{text});
}

OptionalString ask(const std::string& selector, const Words& arguments, OSErr& status) {
  OptionalString result = "untouched";
  status = TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Echo", selector,
                                                   arguments, &result);
  return result;
}

OptionalString ask(const std::string& selector, const Words& arguments = {}) {
  OSErr status = 0;
  const OptionalString result = ask(selector, arguments, status);
  EXPECT_EQ(status, 0);
  return result;
}

// Notes 500 texts that begin with the second argument, by the version in the first.
const support::Role versionedSender("versioned-sender", [](const Words& arguments) {
  constexpr int kNotes = 500;
  useVersion(static_cast<WireVersion>(clientcomm::intValue(arguments.at(0))));
  for (int i = 0; i < kNotes; ++i) {
    if (note(arguments.at(1) + std::to_string(i)) != 0) return 1;
    if (i % 50 == 0 && ask("say:", {"query"}) != "query") return 2;
  }
  return 0;
});

class Versions : public testing::Test {
 protected:
  ChildProcess launch(WireVersion version) {
    ChildProcess child = support::runApplication(
        support::makeApplication("Target", kTarget, "versioned-echo"), {std::to_string(version)});
    EXPECT_TRUE(support::waitUntilReachable(kTarget));
    return child;
  }

  /// A child process with an endpoint that says it serves `version`; see `serveRaw`.
  ChildProcess launchRaw(const std::string& version, const Words& answers) {
    ChildProcess child = ChildProcess::fork([&] {
      return compatibility::serveRaw(kTarget, compatibility::boundNameOf(kTarget, version),
                                     answers);
    });
    EXPECT_TRUE(compatibility::waitForEndpoint(kTarget));
    return child;
  }
};

std::string callPacket(raw::Header header, std::string_view selector, std::string_view argument) {
  return raw::packet(
      header,
      raw::event(kTarget, clientcomm::kCallEventID,
                 {{clientcomm::keyDirectObject, raw::callList("Echo", selector, argument)}}));
}

std::string replyPacket(raw::Header header) {
  header.kind = 3;
  return raw::packet(header, raw::event("", clientcomm::kAnswerEventID,
                                        {{clientcomm::keyDirectObject, raw::text("answer")}}));
}

raw::Header headerOf(const std::string& packet) {
  raw::Header header;
  EXPECT_GE(packet.size(), sizeof header);
  std::memcpy(&header, packet.data(), std::min(packet.size(), sizeof header));
  return header;
}

/// What the target answers to the packet, with these descriptors.
std::string answerTo(const std::string& packet, const std::vector<int>& descriptors = {}) {
  const ScopedFd peer = raw::connectTo(kTarget);
  EXPECT_TRUE(raw::send(peer.get(), packet, descriptors));
  return raw::receive(peer.get());
}

// --- Every sender and every receiver. ---

class Combination : public Versions,
                    public testing::WithParamInterface<std::tuple<WireVersion, WireVersion>> {
 protected:
  static WireVersion senders() { return std::get<0>(GetParam()); }
  static WireVersion receivers() { return std::get<1>(GetParam()); }
};

TEST_P(Combination, CarriesOutCommandsAndAnswersQueries) {
  const ChildProcess target = launch(receivers());
  useVersion(senders());
  const std::string large(300'000, 'x');  // in a memory file, there and back
  EXPECT_EQ(note("first"), 0);
  EXPECT_EQ(note(""), 0);
  EXPECT_EQ(ask("say:", {"hello"}), "hello");
  EXPECT_EQ(ask("say:", {large}), large);
  EXPECT_EQ(ask("none"), std::nullopt);
  EXPECT_EQ(ask("caller"), "com.example.testhost");
  EXPECT_EQ(ask("notes"), "first\n\n");
}

TEST_P(Combination, UsesTheHighestVersionThatBothKnow) {
  const WireVersion expected = std::min(senders(), receivers());
  raw::Header answer;
  answer.version = expected;
  ChildProcess target = launchRaw(std::to_string(receivers()), {"", replyPacket(answer)});
  useVersion(senders());
  EXPECT_EQ(note("x"), 0);
  EXPECT_EQ(ask("say:", {"x"}), "answer");
  EXPECT_EQ(target.wait(), 0);
  EXPECT_EQ(headerOf(compatibility::receivedPacket(0)).version, expected);
  EXPECT_EQ(headerOf(compatibility::receivedPacket(1)).version, expected);
}

TEST_P(Combination, AnswersInTheVersionOfTheEvent) {
  const ChildProcess target = launch(receivers());
  raw::Header query;
  query.kind = 2;
  query.version = std::min(senders(), receivers());
  EXPECT_EQ(headerOf(answerTo(callPacket(query, "say:", "x"))).version, query.version);
  EXPECT_EQ(headerOf(answerTo(callPacket(query, "none:", "x"))).version, query.version);
}

INSTANTIATE_TEST_SUITE_P(Versions, Combination,
                         testing::Combine(testing::ValuesIn(kVersions),
                                          testing::ValuesIn(kVersions)),
                         [](const auto& combination) {
                           return "Sender" + std::to_string(std::get<0>(combination.param)) +
                                  "Receiver" + std::to_string(std::get<1>(combination.param));
                         });

/// How many lines each sender's notes have, as far as they are in order.
std::map<char, int> notesInOrder(const std::string& notes) {
  std::map<char, int> next;
  for (std::size_t at = 0; at < notes.size(); at = notes.find('\n', at) + 1) {
    int& expected = next[notes[at]];
    if (clientcomm::intValue(std::string_view(notes).substr(at + 1)) == expected) ++expected;
  }
  return next;
}

class MixedSenders : public Versions, public testing::WithParamInterface<WireVersion> {};

TEST_P(MixedSenders, AtOnceAllReachOneReceiverEachInItsOrder) {
  const ChildProcess target = launch(GetParam());
  const std::string caller =
      support::makeApplication("Many", "com.example.many", "versioned-sender");
  std::vector<ChildProcess> senders;
  for (int i = 0; i < 6; ++i) {
    const std::string version = std::to_string(kVersions[i % 2]);
    senders.push_back(
        support::runApplication(caller, {version, std::string(1, static_cast<char>('a' + i))}));
  }
  for (ChildProcess& sender : senders) EXPECT_EQ(sender.wait(), 0);
  const auto counts = notesInOrder(ask("notes").value_or(""));
  EXPECT_EQ(counts.size(), senders.size());
  for (const auto& count : counts) EXPECT_EQ(count.second, 500) << count.first;
}

TEST_P(MixedSenders, ReachWhicheverReceiverHasTakenTheNameOverLast) {
  for (const WireVersion sender : kVersions) {
    useVersion(sender);
    const ChildProcess first = launch(GetParam());
    EXPECT_EQ(note("first"), 0);
    const auto other = static_cast<WireVersion>(3 - GetParam());
    const ChildProcess second = support::runApplication(
        support::makeApplication("Other", kTarget, "versioned-echo"), {std::to_string(other)});
    OSErr status = 0;
    EXPECT_TRUE(support::waitUntil([&] { return ask("notes", {}, status) == ""; }));
    EXPECT_EQ(note("second"), 0);
    EXPECT_EQ(ask("notes"), "second\n");
  }
}

INSTANTIATE_TEST_SUITE_P(Versions, MixedSenders, testing::ValuesIn(kVersions),
                         [](const auto& combination) {
                           return "Receiver" + std::to_string(combination.param);
                         });

// --- What a receiver does not serve. ---

class Receiver : public Versions, public testing::WithParamInterface<WireVersion> {
 protected:
  void SetUp() override { target_.emplace(launch(GetParam())); }

  static WireVersion highest() { return GetParam(); }

  std::optional<ChildProcess> target_;
};

TEST_P(Receiver, RefusesAQueryOfAnUnknownVersionWithAStatus) {
  for (const int version : {0, highest() + 1, 255}) {
    raw::Header query;
    query.version = static_cast<std::uint8_t>(version);
    query.kind = 2;
    const std::string answer = answerTo(callPacket(query, "note:", "unknown version"));
    ASSERT_EQ(answer.size(), clientcomm::kPacketHeaderSize) << version;
    EXPECT_EQ(headerOf(answer).version, highest()) << version;
    EXPECT_EQ(headerOf(answer).kind, 3) << version;
    EXPECT_EQ(headerOf(answer).status, clientcomm::errAEEventNotHandled) << version;
  }
  EXPECT_EQ(ask("notes"), "");
}

TEST_P(Receiver, RefusesAnUnknownVersionWhoseHeaderIsShorterOrLongerThanItKnows) {
  constexpr std::uint8_t kUnknown = 200;
  constexpr std::uint8_t kQuery = 2;
  std::string prefix = raw::bytesOf(clientcomm::kPacketMagic);
  prefix += static_cast<char>(kUnknown);
  prefix += static_cast<char>(kQuery);
  prefix += raw::bytesOf(std::uint16_t{8});
  for (const std::string& packet : {prefix, prefix + std::string(100'000, 'x')}) {
    EXPECT_EQ(headerOf(answerTo(packet)).status, clientcomm::errAEEventNotHandled);
  }
}

TEST_P(Receiver, ClosesTheConnectionOfACommandOfAnUnknownVersion) {
  for (const int version : {0, highest() + 1, 255}) {
    raw::Header command;
    command.version = static_cast<std::uint8_t>(version);
    EXPECT_EQ(answerTo(callPacket(command, "note:", "unknown version")), "") << version;
  }
  EXPECT_EQ(ask("notes"), "");
}

TEST_P(Receiver, ServesALongerHeaderAndIgnoresTheRest) {
  for (const std::uint16_t size : std::initializer_list<std::uint16_t>{21, 24, 255, 256, 65535}) {
    raw::Header header;
    header.headerSize = size;
    EXPECT_EQ(answerTo(callPacket(header, "note:", std::to_string(size))), "");
    header.kind = 2;
    EXPECT_EQ(headerOf(answerTo(callPacket(header, "say:", "x"))).status, 0) << size;
  }
  EXPECT_EQ(ask("notes"), "21\n24\n255\n256\n65535\n");
}

TEST_P(Receiver, ServesALongerHeaderWithTheBodyInAMemoryFile) {
  const std::string body =
      raw::event(kTarget, clientcomm::kCallEventID,
                 {{clientcomm::keyDirectObject, raw::callList("Echo", "note:", "in a file")}});
  raw::Header header;
  header.headerSize = 64;
  const ScopedFd file = raw::memoryFile(body, body.size());
  EXPECT_EQ(answerTo(raw::packetForFile(body.size(), header), {file.get()}), "");
  EXPECT_EQ(ask("notes"), "in a file\n");
}

TEST_P(Receiver, ServesAPacketWithAttachmentsThatItDoesNotKnow) {
  const ScopedFd executable(open("/proc/self/exe", O_PATH | O_CLOEXEC));
  const ScopedFd unknown(open("/", O_PATH | O_CLOEXEC));
  raw::Header header;
  header.attachments = 0x8000;
  EXPECT_EQ(answerTo(callPacket(header, "note:", "one"), {unknown.get()}), "");
  header.attachments = 0x8000 | clientcomm::kExecutableAttachment;
  EXPECT_EQ(answerTo(callPacket(header, "note:", "two"), {executable.get(), unknown.get()}), "");
  header.attachments = 0xfffe;
  const std::vector<int> many(20, executable.get());
  EXPECT_EQ(answerTo(callPacket(header, "note:", "many"), many), "");
  EXPECT_EQ(ask("notes"), "one\ntwo\nmany\n");
}

/// A query whose event begins where the token of the header is, so that all sizes fit.
std::string packetWithHeaderOf12Bytes(std::string_view selector, std::string_view argument) {
  constexpr std::uint16_t kShortHeader = 12;
  const std::string body =
      raw::event(kTarget, clientcomm::kCallEventID,
                 {{clientcomm::keyDirectObject, raw::callList("Echo", selector, argument)}});
  raw::Header header;
  header.kind = 2;
  header.headerSize = kShortHeader;
  header.bodySize = static_cast<std::uint32_t>(body.size());
  const std::string bytes(reinterpret_cast<const char*>(&header), kShortHeader);
  return bytes + body;
}

TEST_P(Receiver, ClosesTheConnectionOfAHeaderThatLiesAboutItsSize) {
  for (const std::uint16_t size : std::initializer_list<std::uint16_t>{0, 1, 8, 16, 19}) {
    raw::Header query;
    query.kind = 2;
    query.headerSize = size;
    EXPECT_EQ(answerTo(callPacket(query, "note:", "too short")), "") << size;
  }
  EXPECT_EQ(answerTo(packetWithHeaderOf12Bytes("note:", "twelve")), "");
  raw::Header query;
  query.kind = 2;
  std::string packet = callPacket(query, "note:", "too long");
  packet.replace(6, 2, raw::bytesOf(static_cast<std::uint16_t>(packet.size() + 1)));
  EXPECT_EQ(answerTo(packet), "");
  packet.replace(6, 2, raw::bytesOf(static_cast<std::uint16_t>(packet.size())));
  EXPECT_EQ(answerTo(packet), "");
  EXPECT_EQ(ask("notes"), "");
}

TEST_P(Receiver, ClosesTheConnectionOfAttachmentsThatAreNotThere) {
  raw::Header query;
  query.kind = 2;
  query.attachments = clientcomm::kBodyAttachment;
  EXPECT_EQ(answerTo(callPacket(query, "note:", "no file")), "");
  EXPECT_EQ(answerTo(raw::packetForFile(100, query)), "");
  // The sender's executable is looked for otherwise.
  query.attachments = clientcomm::kExecutableAttachment;
  EXPECT_EQ(headerOf(answerTo(callPacket(query, "note:", "no executable"))).status, 0);
  EXPECT_EQ(ask("notes"), "no executable\n");
}

INSTANTIATE_TEST_SUITE_P(Versions, Receiver, testing::ValuesIn(kVersions),
                         [](const auto& combination) {
                           return "Version" + std::to_string(combination.param);
                         });

// --- What a sender does not take. ---

class Sender : public Versions, public testing::WithParamInterface<WireVersion> {
 protected:
  void SetUp() override { useVersion(GetParam()); }
};

TEST_P(Sender, TakesAReplyOfALaterVersionForNone) {
  Words answers;
  for (const int version : {GetParam() + 1, 0, 255}) {
    raw::Header header;
    header.version = static_cast<std::uint8_t>(version);
    answers.push_back(replyPacket(header));
  }
  ChildProcess target = launchRaw("1", answers);
  for (std::size_t i = 0; i < answers.size(); ++i) {
    OSErr status = 0;
    EXPECT_EQ(ask("say:", {"x"}, status), std::nullopt) << i;
    EXPECT_EQ(status, clientcomm::connectionInvalid) << i;
  }
  EXPECT_EQ(target.wait(), 0);
}

TEST_P(Sender, TakesAReplyWithALongerHeaderAndRefusesOneThatLiesAboutIt) {
  raw::Header longer;
  longer.headerSize = 100;
  std::string beyond = replyPacket({});
  beyond.replace(6, 2, raw::bytesOf(static_cast<std::uint16_t>(beyond.size() + 1)));
  raw::Header shorter;
  shorter.headerSize = 16;
  ChildProcess target = launchRaw("1", {replyPacket(longer), beyond, replyPacket(shorter)});
  EXPECT_EQ(ask("say:", {"x"}), "answer");
  for (int i = 0; i < 2; ++i) {
    OSErr status = 0;
    EXPECT_EQ(ask("say:", {"x"}, status), std::nullopt);
    EXPECT_EQ(status, clientcomm::connectionInvalid);
  }
  EXPECT_EQ(target.wait(), 0);
}

TEST_P(Sender, PassesOnTheStatusOfAReceiverThatRefusesItsVersion) {
  raw::Header refusal;
  refusal.kind = 3;
  refusal.status = clientcomm::errAEEventNotHandled;
  ChildProcess target = launchRaw("1", {raw::packet(refusal)});
  OSErr status = 0;
  EXPECT_EQ(ask("say:", {"x"}, status), std::nullopt);
  EXPECT_EQ(status, clientcomm::errAEEventNotHandled);
  EXPECT_EQ(target.wait(), 0);
}

TEST_P(Sender, UsesItsOwnVersionWithAReceiverOfAMuchLaterOne) {
  raw::Header answer;
  answer.version = GetParam();
  ChildProcess target = launchRaw("255", {replyPacket(answer)});
  EXPECT_EQ(ask("say:", {"x"}), "answer");
  EXPECT_EQ(target.wait(), 0);
  EXPECT_EQ(headerOf(compatibility::receivedPacket(0)).version, GetParam());
}

// A receiver that serves later versions only has another name than the one that promises version 1.
TEST_P(Sender, DoesNotReachAnEndpointWithoutTheNameThatPromisesVersion1) {
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  const ScopedFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const clientcomm::SocketPath path(compatibility::boundNameOf(kTarget, "9"));
  ASSERT_EQ(bind(listener.get(), path.address(), clientcomm::SocketPath::size()), 0);
  ASSERT_EQ(listen(listener.get(), 16), 0);
  EXPECT_EQ(note("x"), clientcomm::procNotFound);
  OSErr status = 0;
  EXPECT_EQ(ask("say:", {"x"}, status), std::nullopt);
  EXPECT_EQ(status, clientcomm::procNotFound);
  EXPECT_EQ(accept(listener.get(), nullptr, nullptr), -1);
}

INSTANTIATE_TEST_SUITE_P(Versions, Sender, testing::ValuesIn(kVersions),
                         [](const auto& combination) {
                           return "Version" + std::to_string(combination.param);
                         });

TEST_F(Versions, SenderOfALaterOneSaysNothingToAnEndpointThatOffersNoneThatItKnows) {
  useVersion(2);
  const std::string digest = clientcomm::fileNameForIdentifier(kTarget);
  const std::string own = digest + "." + std::to_string(getpid());
  for (const std::string& name : {own, own + ".0", own + ".", own + ".x", own + ".256", own + ".01",
                                  own + ".1.1", digest + ".0.1", "unknown." + own}) {
    ChildProcess target = ChildProcess::fork([&] {
      return compatibility::serveRaw(kTarget, name, {"", ""});
    });
    ASSERT_TRUE(compatibility::waitForEndpoint(kTarget));
    EXPECT_EQ(note("x"), clientcomm::errAEEventNotHandled) << name;
    OSErr status = 0;
    EXPECT_EQ(ask("say:", {"x"}, status), std::nullopt) << name;
    EXPECT_EQ(status, clientcomm::errAEEventNotHandled) << name;
    EXPECT_EQ(target.wait(), 0);
    EXPECT_EQ(compatibility::receivedPacket(0), "") << name;
    EXPECT_EQ(compatibility::receivedPacket(1), "") << name;
    std::filesystem::remove(clientcomm::runtimeFolderPath() + "/" + digest);
  }
}

// --- The bound name. ---

TEST(BoundName, TellsItsParts) {
  const std::string digest(clientcomm::kFileNameLength, 'a');
  EXPECT_EQ(clientcomm::boundName({digest, 4711, 1}), digest + ".4711.1");
  const std::string name = digest + ".4711.255";
  const auto parts = clientcomm::partsOfBoundName(name);
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->fileName, digest);
  EXPECT_EQ(parts->pid, 4711);
  EXPECT_EQ(parts->version, 255);
}

TEST(BoundName, IsNothingElse) {
  const std::string digest(clientcomm::kFileNameLength, 'a');
  for (const std::string& name :
       {std::string(), digest, digest + ".1", digest + ".1.", digest + "..1", digest + ".0.1",
        digest + ".1.0", digest + ".1.256", digest + ".01.1", digest + ".1.1.1", digest + ".-1.1",
        digest + ".1.+1", digest + ".99999999999.1", digest + "a.1.1", digest.substr(1) + ".1.1",
        std::string(clientcomm::kFileNameLength, 'A') + ".1.1"}) {
    EXPECT_FALSE(clientcomm::partsOfBoundName(name)) << name;
  }
}

}  // namespace
