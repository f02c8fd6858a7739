#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/idle_connections.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/echo_calls.h"
#include "tests/support/product_applications.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

// What a hostile program of the same user can send to an endpoint or put in its place, and what a
// hostile helper bundle can hold. The application goes on, in bounded memory and with bounded
// descriptors, and serves everybody else.

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;
using clientcomm::PacketKind;
using clientcomm::ScopedFd;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::ask;
using support::ChildProcess;
using support::kTarget;
using support::send;
namespace raw = support::raw;
namespace fs = std::filesystem;

std::string endpointPath() {
  return clientcomm::runtimeFolderPath() + "/" + clientcomm::fileNameForIdentifier(kTarget);
}

ScopedFd connectToTarget() { return raw::connectTo(kTarget); }

/// Sends the bytes as one packet on a connection of their own.
bool sendRaw(std::string_view bytes, const std::vector<int>& descriptors = {}) {
  return raw::send(connectToTarget().get(), bytes, descriptors);
}

/// The body of an event that has the target note `text`, with further parameters.
std::string noteEvent(std::string_view text, const std::vector<raw::Parameter>& more = {}) {
  std::vector<raw::Parameter> parameters = {
      {clientcomm::keyDirectObject, raw::callList("Echo", "note:", text)}};
  parameters.insert(parameters.end(), more.begin(), more.end());
  return raw::event(kTarget, clientcomm::kCallEventID, parameters);
}

/// A further parameter; one that can be read changes nothing about the call.
raw::Parameter extra(std::string flattened) {
  return {clientcomm::fourCharCode("xtra"), std::move(flattened)};
}

std::string notePacket(std::string_view text, const std::vector<raw::Parameter>& more = {}) {
  return raw::packet({}, noteEvent(text, more));
}

AppleEventDescriptor callEvent(const std::string& selector, const std::string& argument) {
  AppleEventDescriptor event =
      AppleEventDescriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kCallEventID,
                                       {clientcomm::typeApplicationBundleID, kTarget}, -1, 0);
  AppleEventDescriptor list = AppleEventDescriptor::listDescriptor();
  list.insertDescriptor(AppleEventDescriptor::descriptorWithString(argument), 0);
  AppleEventDescriptor call = AppleEventDescriptor::listDescriptor();
  call.insertDescriptor(AppleEventDescriptor::descriptorWithString("Echo"), 0);
  call.insertDescriptor(AppleEventDescriptor::descriptorWithString(selector), 0);
  call.insertDescriptor(list, 0);
  event.setParamDescriptor(call, clientcomm::keyDirectObject);
  return event;
}

class Attack : public testing::Test {
 protected:
  void SetUp() override {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  }

  ChildProcess launch() {
    ChildProcess child =
        support::runApplication(support::makeApplication("Target", kTarget, support::kEchoRole));
    EXPECT_TRUE(support::waitUntilReachable(kTarget));
    EXPECT_EQ(ask("say:", {"ready"}), "ready");
    descriptors_ = stress::descriptorsOf(child.pid());
    memory_ = stress::statusOf(child.pid(), "VmHWM");
    return child;
  }

  /// Only `notes` have been carried out of what was sent, and the target serves as before.
  void expectUnharmed(const ChildProcess& target, const std::string& notes = "",
                      long memoryInKiB = 4 << 10) const {
    EXPECT_EQ(ask("say:", {"alive"}), "alive");
    EXPECT_EQ(ask("notes", {}), notes);
    EXPECT_TRUE(support::waitUntil(
        [&] { return stress::descriptorsOf(target.pid()) <= descriptors_; }, seconds(12)));
    EXPECT_LE(stress::statusOf(target.pid(), "VmHWM") - memory_, memoryInKiB);
    EXPECT_EQ(stress::statusOf(target.pid(), "Threads"), 1);
  }

  int descriptors_ = 0;
  long memory_ = 0;
};

TEST_F(Attack, ThousandSilentConnectionsHoldUpNobodyAndAreDropped) {
  const ChildProcess target = launch();
  std::vector<ScopedFd> silent;
  for (int i = 0; i < 1000; ++i) {
    silent.push_back(connectToTarget());
    ASSERT_TRUE(silent.back().isValid());
  }
  const auto time = stress::timeOf([] { EXPECT_EQ(ask("say:", {"through"}), "through"); });
  EXPECT_LE(stress::descriptorsOf(target.pid()),
            descriptors_ + static_cast<int>(clientcomm::kMaximumIdleConnections) + 1);
  stress::report("a query beside a thousand silent connections: " + std::to_string(time.count()) +
                 " us");
  // Those that are left are dropped after the time that a peer may be silent.
  expectUnharmed(target);
}

/// Connects from another process, which says nothing until it is ended.
class SilentCrowd {
 public:
  explicit SilentCrowd(std::size_t size)
      : process_(ChildProcess::fork([size] {
          std::vector<ScopedFd> connections;
          while (connections.size() < size) connections.push_back(connectToTarget());
          support::writeFile(mark(), "");
          for (;;) ::pause();
          return 0;
        })) {
    EXPECT_TRUE(support::waitUntil([] { return fs::exists(mark()); }));
    fs::remove(mark());
  }

 private:
  static std::string mark() { return support::sandbox() + "/connected"; }
  ChildProcess process_;
};

TEST_F(Attack, EventOfAPeerWhosePlaceASilentOneTakesIsStillCarriedOut) {
  const ChildProcess target = launch();
  const ScopedFd executable(open("/proc/self/exe", O_PATH | O_CLOEXEC));
  const ScopedFd slow = connectToTarget();
  // Room for one more: the connection of the sender below may be idle for a moment.
  const SilentCrowd crowd(clientcomm::kMaximumIdleConnections - 2);
  const auto isNearlyFull = [&] {
    return stress::descriptorsOf(target.pid()) >=
           descriptors_ - 2 + static_cast<int>(clientcomm::kMaximumIdleConnections);
  };
  ASSERT_TRUE(support::waitUntil(isNearlyFull));
  // While the target is busy the first one speaks, and a further silent one joins the queue.
  ChildProcess busy = ChildProcess::fork([] { return send("sleep:", {"500"}); });
  ASSERT_EQ(busy.wait(), 0);
  stress::pause(milliseconds(100));
  EXPECT_EQ(clientcomm::sendPacket(slow.get(), PacketKind::kEvent, 0, callEvent("note:", "heard"),
                                   executable.get()),
            0);
  const SilentCrowd another(2);
  EXPECT_TRUE(support::waitUntil([] { return ask("notes", {}) == "heard\n"; }, seconds(3)));
}

TEST_F(Attack, EventSentWhileItsSenderIsBeingDroppedIsCarriedOutOrRefused) {
  const ChildProcess target = launch();
  const ScopedFd executable(open("/proc/self/exe", O_PATH | O_CLOEXEC));
  std::string expected;
  int refused = 0;
  const int rounds = stress::sizeFor(20, 300);
  for (int round = 0; round < rounds; ++round) {
    const ScopedFd slow = connectToTarget();
    ChildProcess crowd = ChildProcess::fork([] {
      std::vector<ScopedFd> connections;
      while (connections.size() < 300) connections.push_back(connectToTarget());
      return 0;
    });
    // Somewhere among those the target drops the first one.
    stress::pause(stress::randomTime(milliseconds(15)));
    const std::string text = std::to_string(round);
    if (clientcomm::sendPacket(slow.get(), PacketKind::kEvent, 0, callEvent("note:", text),
                               executable.get()) == 0) {
      expected += text + "\n";
    } else {
      ++refused;
    }
    EXPECT_EQ(crowd.wait(), 0);
    EXPECT_EQ(ask("say:", {"y"}), "y");
  }
  EXPECT_EQ(ask("notes", {}), expected);
  stress::report("sent while being dropped: " + std::to_string(rounds) + ", refused " +
                 std::to_string(refused));
}

TEST_F(Attack, PeersThatSendOneByteASecondAreDisconnectedAtTheFirst) {
  const ChildProcess target = launch();
  for (int i = 0; i < stress::sizeFor(2, 10); ++i) {
    const ScopedFd peer = connectToTarget();
    EXPECT_EQ(::send(peer.get(), "T", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(ask("say:", {"meanwhile"}), "meanwhile");
    EXPECT_EQ(::send(peer.get(), "Q", 1, MSG_NOSIGNAL), -1);
    stress::pause(seconds(1));
  }
  expectUnharmed(target);
}

// Each event of these tests would be carried out but for the one thing that the test is about; the
// first of each test has nothing wrong with it and is.

TEST_F(Attack, OversizedLengthsAreRefusedWithoutMemoryForThem) {
  const ChildProcess target = launch();
  EXPECT_TRUE(sendRaw(notePacket("control")));
  const std::string body = noteEvent("wrong size of the body");
  const auto size = static_cast<std::uint32_t>(body.size());
  for (const std::uint32_t claimed :
       {0U, 1U, 15U, size - 1, size + 1, 1U << 20,
        static_cast<std::uint32_t>(clientcomm::kMaximumFlattenedSize),
        static_cast<std::uint32_t>(clientcomm::kMaximumFlattenedSize) + 1, 0xffffffffU}) {
    raw::Header header;
    header.bodySize = claimed;
    EXPECT_TRUE(sendRaw(raw::packet(header) + body)) << claimed;
    EXPECT_TRUE(sendRaw(raw::packet(header))) << claimed;
    EXPECT_TRUE(sendRaw(raw::packetForFile(claimed))) << claimed;
    EXPECT_TRUE(sendRaw(raw::packetForFile(claimed) + body)) << claimed;
  }
  for (const std::uint32_t length :
       {0x7fffffffU, 0x80000000U, 0xfffffff8U, 0xffffffffU, 100U, 6U, 4U}) {
    const std::string wrong = raw::descriptor(clientcomm::typeUTF8Text, "short", length);
    EXPECT_TRUE(sendRaw(notePacket("wrong length of a text", {extra(wrong)}))) << length;
    // More follows, which a reader that goes by the length would look for far behind it.
    const std::string first = raw::event(
        kTarget, clientcomm::kCallEventID,
        {extra(wrong),
         {clientcomm::keyDirectObject, raw::callList("Echo", "note:", "wrong length before")}});
    EXPECT_TRUE(sendRaw(raw::packet({}, first))) << length;
    std::string event = noteEvent("wrong length of the event");
    event.replace(4, 4, raw::bytesOf(length));
    EXPECT_TRUE(sendRaw(raw::packet({}, event))) << length;
  }
  expectUnharmed(target, "control\n");
}

// The event is the first level and its parameter the second.
constexpr int kDeepestLists = clientcomm::kMaximumNesting - 2;

TEST_F(Attack, DeepNestingIsRefused) {
  const ChildProcess target = launch();
  EXPECT_TRUE(sendRaw(notePacket("control", {extra(raw::nestedLists(kDeepestLists))})));
  for (const int depth : {kDeepestLists + 1, 100, 3000}) {
    EXPECT_TRUE(sendRaw(notePacket("too deep", {extra(raw::nestedLists(depth))}))) << depth;
  }
  expectUnharmed(target, "control\n");
}

TEST_F(Attack, DeepNestingInAMemoryFileIsRefused) {
  const ChildProcess target = launch();
  constexpr std::uint32_t kDepth = 1'000'000;
  constexpr std::uint32_t kStep = 12;  // type, length and count of each list
  std::string lists;
  for (std::uint32_t i = kDepth; i > 0; --i) {
    lists += raw::bytesOf(clientcomm::typeAEList) + raw::bytesOf(i * kStep - 8) +
             raw::bytesOf(i == 1 ? 0U : 1U);
  }
  const auto sendInFile = [](const std::string& body) {
    return sendRaw(raw::packetForFile(body.size()), {raw::memoryFile(body, body.size()).get()});
  };
  EXPECT_TRUE(sendInFile(noteEvent("control", {extra(raw::nestedLists(kDeepestLists))})));
  EXPECT_TRUE(sendInFile(noteEvent("too deep", {extra(lists)})));
  expectUnharmed(target, "control\n", 32 << 10);
}

TEST_F(Attack, CountsThatLieAreRefusedWithoutMemoryForThem) {
  const ChildProcess target = launch();
  const std::string item = raw::text("item");
  EXPECT_TRUE(sendRaw(notePacket("control", {extra(raw::list(1, item))})));
  for (const std::uint32_t count : {0U, 2U, 1000U, 0x7fffffffU, 0xffffffffU}) {
    EXPECT_TRUE(sendRaw(notePacket("wrong count of a list", {extra(raw::list(count, item))})))
        << count;
    const std::string event =
        raw::event(kTarget, clientcomm::kCallEventID,
                   {{clientcomm::keyDirectObject,
                     raw::callList("Echo", "note:", "wrong count of parameters")}},
                   count);
    EXPECT_TRUE(sendRaw(raw::packet({}, event))) << count;
  }
  expectUnharmed(target, "control\n");
}

TEST_F(Attack, CountsThatLieInASmallEventReserveNoMemory) {
  const ChildProcess target = launch();
  const long before = stress::statusOf(target.pid(), "VmPeak");
  // As many as one event may hold, in a list of a few bytes.
  const auto count = static_cast<std::uint32_t>(clientcomm::kMaximumDescriptors) / 2;
  std::string lists = raw::text("item");
  for (int level = 0; level < kDeepestLists; ++level) lists = raw::list(count, lists);
  EXPECT_TRUE(sendRaw(notePacket("control", {extra(raw::list(1, raw::text("item")))})));
  EXPECT_TRUE(sendRaw(notePacket("wrong counts", {extra(lists)})));
  expectUnharmed(target, "control\n");
  EXPECT_LE(stress::statusOf(target.pid(), "VmPeak") - before, 4 << 10);
}

// Each list says that it holds as many items as its bytes could, and only the innermost is short.
TEST_F(Attack, CountsThatLieAtEveryLevelOfALargeEventCostNoMoreThanItsOwnSize) {
  const ChildProcess target = launch();
  constexpr std::uint32_t kLevels = 12;
  const auto total = static_cast<std::uint32_t>(clientcomm::kMaximumFlattenedSize) - 256;
  std::string heads;
  for (std::uint32_t level = 0; level < kLevels; ++level) {
    const std::uint32_t payload = total - level * 12 - 8;
    heads += raw::bytesOf(clientcomm::typeAEList) + raw::bytesOf(payload) +
             raw::bytesOf((payload - 4) / 8);
  }
  // An event around them, of which only the beginning is written; the rest are zeros.
  std::string body = noteEvent("wrong counts", {extra(heads)});
  const std::uint32_t missing = total - static_cast<std::uint32_t>(heads.size());
  const auto length = static_cast<std::uint32_t>(body.size() - 8) + missing;
  body.replace(4, 4, raw::bytesOf(length));
  EXPECT_TRUE(sendRaw(raw::packetForFile(length + 8), {raw::memoryFile(body, length + 8).get()}));
  EXPECT_EQ(ask("say:", {"alive"}), "alive");
  const long peak = stress::statusOf(target.pid(), "VmPeak");
  EXPECT_LE(peak, stress::statusOf(target.pid(), "VmSize") + (256 << 10));
  expectUnharmed(target, "", 192 << 10);
}

TEST_F(Attack, MemoryFilesThatCouldChangeOrLieAboutTheirSizeAreRefused) {
  const ChildProcess target = launch();
  const std::string control = noteEvent("control");
  const std::string body = noteEvent("refused");
  ASSERT_EQ(control.size(), body.size());
  const std::string claim = raw::packetForFile(body.size());
  EXPECT_TRUE(sendRaw(claim, {raw::memoryFile(control, control.size()).get()}));
  const ScopedFd unsealed = raw::memoryFile(body, body.size(), 0);
  const ScopedFd canShrink = raw::memoryFile(body, body.size(), F_SEAL_WRITE | F_SEAL_GROW);
  const ScopedFd canBeWritten = raw::memoryFile(body, body.size(), F_SEAL_SHRINK | F_SEAL_GROW);
  const ScopedFd larger = raw::memoryFile(body, body.size() + 1);
  const ScopedFd empty = raw::memoryFile("", 0);
  const std::string plainPath = support::sandbox() + "/plain";
  support::writeFile(plainPath, body);
  const ScopedFd plain(open(plainPath.c_str(), O_RDONLY | O_CLOEXEC));
  const ScopedFd folder(open("/", O_RDONLY | O_CLOEXEC));
  for (const ScopedFd* file :
       {&unsealed, &canShrink, &canBeWritten, &larger, &empty, &plain, &folder}) {
    EXPECT_TRUE(sendRaw(claim, {file->get()}));
  }
  expectUnharmed(target, "control\n");
}

TEST_F(Attack, DescriptorsByTheHundredAndOfTheWrongKindStayNowhere) {
  const ChildProcess target = launch();
  const ScopedFd folder(open("/", O_RDONLY | O_CLOEXEC));
  const ScopedFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const ScopedFd readEnd(ends[0]);
  const ScopedFd writeEnd(ends[1]);
  const std::string event = notePacket("heard");
  std::string expected;
  for (const int fd : {folder.get(), socket.get(), readEnd.get()}) {
    EXPECT_TRUE(sendRaw(event, {fd}));
    EXPECT_TRUE(sendRaw(event, std::vector<int>(253, fd)));
    EXPECT_TRUE(sendRaw("rubbish", std::vector<int>(253, fd)));
    expected += "heard\nheard\n";
  }
  expectUnharmed(target, expected);
}

TEST_F(Attack, PeersThatNeverReadTheirRepliesHoldUpNobody) {
  const ChildProcess target = launch();
  const ScopedFd executable(open("/proc/self/exe", O_PATH | O_CLOEXEC));
  std::vector<ScopedFd> peers;
  for (int i = 0; i < 500; ++i) {
    peers.push_back(connectToTarget());
    EXPECT_EQ(clientcomm::sendPacket(peers.back().get(), PacketKind::kEventWantingReply, 0,
                                     callEvent("say:", std::string(50'000, 'r')), executable.get()),
              0);
  }
  expectUnharmed(target);
}

/// A reply packet with the text "answer", as a well-behaved application sends it.
std::string replyPacket(raw::Header header = {}, const std::vector<raw::Parameter>& more = {}) {
  header.kind = 3;
  std::vector<raw::Parameter> parameters = {{clientcomm::keyDirectObject, raw::text("answer")}};
  parameters.insert(parameters.end(), more.begin(), more.end());
  return raw::packet(header, raw::event("", clientcomm::kAnswerEventID, parameters));
}

/// Replies that are well-formed but for one thing each.
std::vector<std::string> hostileReplies() {
  raw::Header wrongMagic;
  wrongMagic.magic = clientcomm::fourCharCode("PHQT");
  raw::Header wrongVersion;
  wrongVersion.version = 0;
  std::string wrongKind = replyPacket();
  wrongKind[5] = 1;
  std::string unknownKind = replyPacket();
  unknownKind[5] = 4;
  std::string wrongSize = replyPacket();
  wrongSize[8] = static_cast<char>(wrongSize[8] + 1);
  raw::Header reply;
  reply.kind = 3;
  return {"",
          "x",
          replyPacket().substr(0, 40),
          replyPacket(wrongMagic),
          replyPacket(wrongVersion),
          wrongKind,
          unknownKind,
          wrongSize,
          replyPacket({}, {extra(raw::nestedLists(kDeepestLists + 1))}),
          replyPacket({}, {extra(raw::list(0xffffffff, raw::text("item")))}),
          raw::packet(reply, raw::text("answer"))};
}

/// Answers one query after the other with these packets; an empty one is no answer.
int answerWith(const std::vector<std::string>& answers) {
  const ScopedFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(kTarget));
  if (bind(listener.get(), path.address(), clientcomm::SocketPath::size()) != 0) return 1;
  if (listen(listener.get(), 16) != 0) return 2;
  for (const std::string& answer : answers) {
    const ScopedFd peer(accept(listener.get(), nullptr, nullptr));
    std::vector<char> bytes(1 << 16);
    if (recv(peer.get(), bytes.data(), bytes.size(), 0) <= 0) return 3;
    if (!answer.empty() && !raw::send(peer.get(), answer)) return 4;
  }
  return 0;
}

TEST_F(Attack, ReplyOfAHostileApplicationIsRefusedAndTheCallerGoesOn) {
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  std::vector<std::string> answers = {replyPacket()};
  const std::vector<std::string> hostile = hostileReplies();
  answers.insert(answers.end(), hostile.begin(), hostile.end());
  ChildProcess application = ChildProcess::fork([&] { return answerWith(answers); });
  ASSERT_TRUE(support::waitUntil([] { return fs::exists(fs::symlink_status(endpointPath())); }));
  for (std::size_t i = 0; i < answers.size(); ++i) {
    OptionalString result = "untouched";
    OSErr status = clientcomm::procNotFound;
    EXPECT_TRUE(support::waitUntil([&] {
      status = TQHPAppleEventSender::share().sendEvnet(
          OptionalString(kTarget), "Echo", "say:", std::vector<std::string>{"x"}, &result);
      return status != clientcomm::procNotFound;
    })) << i;
    EXPECT_EQ(status, i == 0 ? clientcomm::noErr : clientcomm::connectionInvalid) << i;
    EXPECT_EQ(result, i == 0 ? OptionalString("answer") : std::nullopt) << i;
  }
  EXPECT_EQ(application.wait(), 0);
}

// --- Large events. ---

/// The body of a call whose argument makes it nearly as large as an event may be.
std::string largestCall(std::string_view selector) {
  const std::string argument(clientcomm::kMaximumFlattenedSize - 1024, 'x');
  return raw::event(kTarget, clientcomm::kCallEventID,
                    {{clientcomm::keyDirectObject, raw::callList("Echo", selector, argument)}});
}

TEST_F(Attack, BodyOfACallerWithoutIdentityIsNotDecoded) {
  const ChildProcess target = launch();
  const std::string program = support::sandbox() + "/no-bundle";
  fs::copy_file("/bin/sleep", program);
  const std::string body = largestCall("note:");
  const ScopedFd file = raw::memoryFile(body, body.size());
  // Connected by the outsider, so that the credentials are its own.
  const ScopedFd query(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  target.signal(SIGSTOP);  // so that the events are looked at when the other program runs
  const ChildProcess outsider = ChildProcess::fork([&] {
    for (int i = 0; i < 20; ++i) {
      if (!sendRaw(raw::packetForFile(body.size()), {file.get()})) return 1;
    }
    const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(kTarget));
    if (connect(query.get(), path.address(), clientcomm::SocketPath::size()) != 0 ||
        !raw::send(query.get(), raw::packetForFile(body.size(), {.kind = 2}), {file.get()})) {
      return 1;
    }
    return execl(program.c_str(), program.c_str(), "60", nullptr);
  });
  const std::string link = "/proc/" + std::to_string(outsider.pid()) + "/exe";
  ASSERT_TRUE(support::waitUntil([&] { return fs::read_symlink(link) == program; }));
  target.signal(SIGCONT);
  // The outcome is that of a call that the target does not serve.
  clientcomm::Packet reply;
  clientcomm::ReceiveResult result = clientcomm::ReceiveResult::kNothingYet;
  EXPECT_TRUE(support::waitUntil([&] {
    result = clientcomm::receivePacket(query.get(), reply);
    return result != clientcomm::ReceiveResult::kNothingYet;
  }));
  EXPECT_EQ(result, clientcomm::ReceiveResult::kPacket);
  EXPECT_EQ(reply.kind, PacketKind::kReply);
  EXPECT_EQ(reply.status, clientcomm::noErr);
  EXPECT_EQ(reply.descriptor.paramDescriptorForKeyword(clientcomm::keyDirectObject), nullptr);
  expectUnharmed(target);
}

TEST_F(Attack, CallerWithManyLargeEventsHoldsUpNoOtherCaller) {
  const ChildProcess target = launch();
  const std::string body = largestCall("none:");
  const ScopedFd file = raw::memoryFile(body, body.size());
  const std::string mark = support::sandbox() + "/sent";
  target.signal(SIGSTOP);  // so that all is in the queue at once
  const ChildProcess flooder = ChildProcess::fork([&] {
    for (int i = 0; i < 20; ++i) {
      if (!sendRaw(raw::packetForFile(body.size()), {file.get()})) return 1;
    }
    if (!sendRaw(notePacket("flooder"))) return 1;
    support::writeFile(mark, "");
    for (;;) ::pause();
    return 0;
  });
  ASSERT_TRUE(support::waitUntil([&] { return fs::exists(mark); }));
  EXPECT_EQ(send("note:", {"other"}), clientcomm::noErr);
  target.signal(SIGCONT);
  // The flooder's events stay in order, and all are carried out.
  EXPECT_TRUE(support::waitUntil(
      [] { return ask("notes", {}).value_or("").find("flooder") != std::string::npos; },
      seconds(60)));
  EXPECT_EQ(ask("notes", {}), "other\nflooder\n");
}

// --- In the place of the endpoint. ---

TEST_F(Attack, SymbolicLinkInThePlaceOfTheEndpointIsReplacedAndItsTargetLeftAlone) {
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  const std::string victim = support::sandbox() + "/victim";
  support::writeFile(victim, "precious");
  fs::create_symlink(victim, endpointPath());
  fs::create_symlink(victim, endpointPath() + "." + std::to_string(getpid()) + ".1");
  EXPECT_EQ(send("note:", {"x"}), clientcomm::procNotFound);
  const ChildProcess target = launch();
  EXPECT_EQ(support::readFile(victim), "precious");
  EXPECT_TRUE(fs::is_socket(fs::symlink_status(endpointPath())));
}

TEST_F(Attack, FileOfAnotherUserInThePlaceOfTheEndpointIsReplaced) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make another user's file";
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  support::writeFile(endpointPath(), "foreign");
  ASSERT_EQ(chown(endpointPath().c_str(), 65534, 65534), 0);
  EXPECT_EQ(send("note:", {"x"}), clientcomm::procNotFound);
  const ChildProcess target = launch();
  EXPECT_TRUE(fs::is_socket(fs::symlink_status(endpointPath())));
}

TEST_F(Attack, DirectoryInThePlaceOfTheEndpointIsLeftAloneAndTheEndpointOpensWhenItIsGone) {
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  support::writeFile(endpointPath() + "/inside", "kept");
  ChildProcess target =
      support::runApplication(support::makeApplication("Target", kTarget, support::kEchoRole));
  EXPECT_FALSE(support::waitUntil([] { return send("note:", {"x"}) != clientcomm::procNotFound; },
                                  milliseconds(500)));
  EXPECT_EQ(support::readFile(endpointPath() + "/inside"), "kept");
  fs::remove_all(endpointPath());
  EXPECT_TRUE(support::waitUntil([] { return send("note:", {"x"}) == 0; }));
}

TEST_F(Attack, EndpointTakenByAnotherProgramIsTakenBack) {
  const ChildProcess target = launch();
  {
    const ScopedFd usurper(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    fs::remove(endpointPath());
    const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(kTarget));
    ASSERT_EQ(bind(usurper.get(), path.address(), clientcomm::SocketPath::size()), 0);
    ASSERT_EQ(listen(usurper.get(), 16), 0);
  }
  EXPECT_TRUE(support::waitUntil([] { return ask("say:", {"back"}) == "back"; }));
}

// --- What a helper's bundle holds. ---

TEST_F(Attack, LinksOfAHelperBundleThatLeadOutsideAreCopiedAsLinksAndNeverFollowed) {
  const std::string resource = support::embedHelper("1.0");
  const std::string outside = support::sandbox() + "/outside";
  support::writeFile(outside + "/secret", "secret");
  const std::string resources = resource + "/Contents/Resources";
  fs::create_directories(resources);
  fs::create_symlink(outside + "/secret", resources + "/file");
  fs::create_directory_symlink(outside, resources + "/folder");
  fs::create_symlink("../../../../../../outside/secret", resources + "/relative");
  fs::create_symlink("/proc/self/mem", resources + "/memory");
  fs::create_symlink("loop", resources + "/loop");
  TQHPHelper::share();
  ASSERT_TRUE(support::waitUntil([] { return support::countInJournal("start P100") == 1; }));
  EXPECT_TRUE(support::haveSameContents(resource, support::installedHelperPath()));
  // Neither does the removal of that copy, for a newer one, touch what they lead to.
  const std::string newer = support::makeHost("newer", "1.0.1");
  ChildProcess host = support::runApplication(newer, {"600000", "20"});
  EXPECT_TRUE(support::waitUntil([] { return support::countInJournal("up 1.0.1") == 1; }));
  EXPECT_TRUE(support::haveSameContents(support::helperIn(newer), support::installedHelperPath()));
  EXPECT_EQ(support::readFile(outside + "/secret"), "secret");
  EXPECT_EQ(std::distance(fs::directory_iterator(outside), {}), 1);
}

TEST_F(Attack, PipesAndDevicesInAHelperBundleMakeNoHostWait) {
  const std::string resource = support::embedHelper("1.0");
  ASSERT_EQ(mkfifo((resource + "/Contents/pipe").c_str(), 0600), 0);
  const auto time = stress::timeOf([] { TQHPHelper::share(); });
  EXPECT_LE(time, seconds(5));
  EXPECT_EQ(TQHPHelperCommunicate::share().autoRestartHelper(), 1);
  EXPECT_TRUE(fs::is_empty(support::sandbox() + "/install"));
}

int processesWithArguments(const std::string& arguments) {
  int count = 0;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    if (support::readFile(entry.path() / "cmdline") == arguments) ++count;
  }
  return count;
}

// Such a process is not known as the helper, so that no tick finds the helper running.
TEST_F(Attack, ExecutableThatLeadsOutsideTheBundleIsNotStartedAgainAndAgain) {
  const std::string resource = support::embedHelper("1.0");
  const std::string executable = support::executableOf(resource);
  const std::string outside = support::sandbox() + "/outside";
  const std::string length = "600." + std::to_string(getpid());
  support::writeFile(outside, "#!/bin/sh\nexec sleep " + length + "\n");
  fs::permissions(outside, fs::perms::owner_all);
  fs::remove(executable);
  fs::create_symlink(outside, executable);
  TQHPHelper::share();
  for (int tick = 0; tick < 5; ++tick) TQHPHelperCommunicate::share().autoRestartHelper();
  // An argument of its own, since other tests may run beside this one.
  const std::string arguments = "sleep" + std::string(1, '\0') + length + std::string(1, '\0');
  EXPECT_EQ(processesWithArguments(arguments), 1);
}

}  // namespace
