#include <gtest/gtest.h>
#include <sched.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/async.h"
#include "ClientComm/platform/linux/access_proof.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/child_process.h"
#include "tests/support/echo_calls.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"
#include "tests/support/watch_record.h"

// Who may watch the calls of an application, and what a watcher is told.

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;
using clientcomm::ScopedFd;
using support::ask;
using support::ChildProcess;
using support::kTarget;
using support::send;
namespace raw = support::raw;
namespace fs = std::filesystem;

std::string proofOf(pid_t pid) {
  return clientcomm::accessProof(
      clientcomm::ProcPath::ofProcess(pid, clientcomm::kAccessProofFile));
}

/// A program that asks the target to tell it its calls.
class Watcher {
 public:
  /// Sends the request with `proof`; `answer` has what came back.
  explicit Watcher(const std::string& proof) : socket_(raw::connectTo(kTarget)) {
    raw::Header header;
    header.kind = 4;
    if (!socket_.isValid() || !raw::send(socket_.get(), raw::packet(header, proof))) return;
    next();
  }

  /// The status of what came last; nothing when the connection has ended.
  std::optional<OSErr> status() const { return status_; }

  /// Waits for the next record. @return whether there is one.
  bool next() {
    clientcomm::Packet packet;
    auto result = clientcomm::ReceiveResult::kNothingYet;
    const auto receive = [&] {
      result = clientcomm::receivePacket(socket_.get(), packet);
      return result != clientcomm::ReceiveResult::kNothingYet;
    };
    support::waitUntil(receive);
    const bool isReply = result == clientcomm::ReceiveResult::kPacket &&
                         packet.kind == clientcomm::PacketKind::kReply;
    status_ = isReply ? std::optional(packet.status) : std::nullopt;
    event_ = std::move(packet.descriptor);
    return isReply;
  }

  /// Whether something can be read.
  bool hasNext() const {
    char byte = 0;
    return recv(socket_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
  }

  /// What came last.
  support::WatchRecord record() const { return support::watchRecordIn(event_); }

 private:
  ScopedFd socket_;
  std::optional<OSErr> status_;
  AppleEventDescriptor event_;
};

class Watch : public testing::Test {
 protected:
  static ChildProcess launch() {
    ChildProcess child =
        support::runApplication(support::makeApplication("Target", kTarget, support::kEchoRole));
    EXPECT_TRUE(support::waitUntilReachable(kTarget));
    return child;
  }

  /// The process's open descriptors, and what each leads to.
  static std::map<int, std::string> descriptorsOf(pid_t pid) {
    std::map<int, std::string> all;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
      std::error_code gone;
      all[std::stoi(entry.path().filename())] = fs::read_symlink(entry.path(), gone);
    }
    return all;
  }
};

TEST_F(Watch, TellsACallWithItsCallerItsArgumentsAndItsAnswer) {
  const ChildProcess target = launch();
  Watcher watcher(proofOf(target.pid()));
  ASSERT_EQ(watcher.status(), 0);
  ASSERT_EQ(ask("say:", {"hello"}), "hello");
  ASSERT_TRUE(watcher.next());
  EXPECT_EQ(watcher.record().process, getpid());
  EXPECT_EQ(watcher.record().identifier.text, "com.example.testhost");
  EXPECT_EQ(watcher.record().wantsReply, 1);
  EXPECT_EQ(watcher.record().className.text, "Echo");
  EXPECT_EQ(watcher.record().selector.text, "say:");
  EXPECT_EQ(watcher.record().arguments.at(0).text, "hello");
  EXPECT_EQ(watcher.record().status, 0);
  EXPECT_EQ(watcher.record().answer.text, "hello");
  EXPECT_EQ(watcher.record().missed, 0);
  ASSERT_EQ(send("note:", {"text"}), 0);
  ASSERT_TRUE(watcher.next());
  EXPECT_EQ(watcher.record().wantsReply, 0);
  EXPECT_EQ(watcher.record().answer.text, std::nullopt);
}

TEST_F(Watch, SeveralAreToldTheSame) {
  const ChildProcess target = launch();
  Watcher first(proofOf(target.pid()));
  Watcher second(proofOf(target.pid()));
  ASSERT_EQ(send("note:", {"text"}), 0);
  for (Watcher* const watcher : {&first, &second}) {
    ASSERT_TRUE(watcher->next());
    EXPECT_EQ(watcher->record().selector.text, "note:");
    EXPECT_EQ(watcher->record().arguments.at(0).text, "text");
  }
}

TEST_F(Watch, IsForgottenWithTheNextCallAfterItsEnd) {
  const ChildProcess target = launch();
  EXPECT_EQ(ask("say:", {"alive"}), "alive");
  const std::size_t before = descriptorsOf(target.pid()).size();  // of the last call too, at times
  {
    std::vector<Watcher> watchers;
    watchers.reserve(4);
    for (int i = 0; i < 4; ++i) watchers.emplace_back(proofOf(target.pid()));
    EXPECT_GE(descriptorsOf(target.pid()).size(), before + 3);
  }
  EXPECT_EQ(ask("say:", {"alive"}), "alive");
  EXPECT_TRUE(support::waitUntil([&] { return descriptorsOf(target.pid()).size() <= before; }));
  EXPECT_EQ(ask("say:", {"alive"}), "alive");
}

TEST_F(Watch, ThatDoesNotReadMissesCallsAndHoldsUpNone) {
  constexpr int kCalls = 2000;
  const ChildProcess target = launch();
  Watcher watcher(proofOf(target.pid()));
  for (int i = 0; i < kCalls; ++i) ASSERT_EQ(send("note:", {std::to_string(i)}), 0);
  const OptionalString notes = ask("notes", {});
  ASSERT_TRUE(notes);
  EXPECT_EQ(std::count(notes->begin(), notes->end(), '\n'), kCalls);
  int told = 0;
  std::int64_t missed = 0;
  const auto count = [&] {
    ++told;
    missed += watcher.record().missed;
  };
  while (watcher.hasNext() && watcher.next()) count();
  EXPECT_GT(told, 0);
  EXPECT_LT(told, kCalls);
  ASSERT_EQ(send("note:", {"last"}), 0);
  while (watcher.next()) {
    count();
    if (watcher.record().selector.text == "note:") break;
  }
  EXPECT_EQ(watcher.record().arguments.at(0).text, "last");
  EXPECT_EQ(told + missed, kCalls + 2);  // "notes" and "last" too
}

TEST_F(Watch, IsToldOfACallThatIsRefused) {
  const ChildProcess target = launch();
  Watcher watcher(proofOf(target.pid()));
  const std::string program = support::sandbox() + "/no-bundle";
  fs::copy_file("/bin/sleep", program);
  target.signal(SIGSTOP);  // so that the call is looked at when the other program runs
  const ChildProcess outsider = ChildProcess::fork([&] {
    const ScopedFd own = raw::connectTo(kTarget);
    raw::send(own.get(), raw::packet({}, "not decoded"));
    return execl(program.c_str(), program.c_str(), "60", nullptr);
  });
  const std::string link = "/proc/" + std::to_string(outsider.pid()) + "/exe";
  ASSERT_TRUE(support::waitUntil([&] { return fs::read_symlink(link) == program; }));
  target.signal(SIGCONT);
  ASSERT_TRUE(watcher.next());
  EXPECT_EQ(watcher.record().process, outsider.pid());
  EXPECT_EQ(watcher.record().identifier.text, std::nullopt);
  EXPECT_EQ(watcher.record().className.text, std::nullopt);
  EXPECT_EQ(watcher.record().status, clientcomm::errAEEventNotPermitted);
}

TEST_F(Watch, BeyondTheLimitTakesThePlaceOfTheOldest) {
  const ChildProcess target = launch();
  std::vector<Watcher> watchers;
  watchers.reserve(clientcomm::kMaximumWatchers + 1);
  for (std::size_t i = 0; i < clientcomm::kMaximumWatchers + 1; ++i) {
    watchers.emplace_back(proofOf(target.pid()));
    ASSERT_EQ(watchers.back().status(), 0);
  }
  EXPECT_FALSE(watchers.front().next());
  ASSERT_EQ(send("note:", {"text"}), 0);
  for (std::size_t i = 1; i < watchers.size(); ++i) {
    ASSERT_TRUE(watchers[i].next());
    EXPECT_EQ(watchers[i].record().selector.text, "note:");
  }
}

TEST_F(Watch, OfAProgramThatMayNotLookIntoTheApplicationIsRefused) {
  const ChildProcess target = launch();
  const ChildProcess other = ChildProcess::spawn({"/bin/sleep", "60"});
  const std::string proofs[] = {"", "x", proofOf(other.pid()), proofOf(target.pid()) + "0",
                                proofOf(target.pid()).substr(1)};
  for (const std::string& proof : proofs) {
    Watcher watcher(proof);
    EXPECT_EQ(watcher.status(), clientcomm::errAEEventNotPermitted);
    ASSERT_EQ(send("note:", {"private"}), 0);
    EXPECT_FALSE(watcher.next());
  }
}

TEST_F(Watch, OfAProgramInASandboxIsRefused) {
  const ChildProcess target = launch();
  ChildProcess inside = ChildProcess::fork([&] {
    if (unshare(CLONE_NEWUSER) != 0) return 77;
    const std::string proof = proofOf(target.pid());
    if (!proof.empty()) return 1;
    Watcher watcher(proof);
    return watcher.status() == clientcomm::errAEEventNotPermitted ? 0 : 2;
  });
  const int status = inside.wait();
  if (status == 77) GTEST_SKIP() << "the kernel refuses a user namespace";
  EXPECT_EQ(status, 0);
}

TEST_F(Watch, OfAnotherUserIsNotAnswered) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  const ChildProcess target = launch();
  const std::string proof = proofOf(target.pid());
  ChildProcess other = ChildProcess::fork([&] {
    // Files are opened as root, so that no folder's mode keeps this user out.
    if (setegid(65534) != 0 || seteuid(65534) != 0) return 1;
    setfsuid(0);
    return Watcher(proof).status() == std::nullopt ? 0 : 2;
  });
  EXPECT_EQ(other.wait(), 0);
}

TEST_F(Watch, IsDroppedWhenTheApplicationRunsOutOfDescriptors) {
  const ChildProcess target = launch();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(ask("say:", {"known"}), "known");
  const auto before = descriptorsOf(target.pid());
  Watcher watcher(proofOf(target.pid()));
  Watcher another(proofOf(target.pid()));
  ASSERT_EQ(another.status(), 0);
  // These took the lowest that were free, so that none below them is.
  int highest = 0;
  for (const auto& [descriptor, file] : descriptorsOf(target.pid())) {
    const auto known = before.find(descriptor);
    if (known == before.end() || known->second != file) highest = descriptor;
  }
  ASSERT_GT(highest, 0);
  const rlimit limit{static_cast<rlim_t>(highest) + 1, 8192};
  ASSERT_EQ(prlimit(target.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  OptionalString answer;
  const clientcomm::PendingQuery query = TQHPAppleEventSender::share().sendEvnetAsync(
      OptionalString(kTarget), "Echo", "say:", std::vector<std::string>{"served"},
      [&](OSErr /*status*/, const OptionalString& text) { answer = text; });
  EXPECT_TRUE(support::runLoopUntil([&] { return answer == "served"; }));
  EXPECT_FALSE(watcher.next());
}

}  // namespace
