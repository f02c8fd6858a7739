#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/socket_transport.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/text.h"
#include "tests/stress/stress.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// Many hosts at once: at their start, in full flow, and before a helper that does not read.

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using support::ChildProcess;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr char kTarget[] = "com.example.target";
constexpr char kSenderRole[] = "stress-sender";

// What the scheduler may add to a time limit on a machine with more to do than processors.
constexpr milliseconds kSchedulingSlack{750};

/// Which of its texts a sender was told that they were handed over, and what else it was told.
struct SenderReport {
  std::vector<int> accepted;
  std::map<int, int> refused;  ///< Status -> how often.
  milliseconds longestSend{};
};

std::string reportPath(const std::string& sender) {
  return support::sandbox() + "/report-" + sender;
}

void writeReport(const std::string& sender, const SenderReport& report) {
  std::ostringstream text;
  text << report.longestSend.count() << ' ' << report.refused.size();
  for (const auto& [status, times] : report.refused) text << ' ' << status << ' ' << times;
  for (const int number : report.accepted) text << ' ' << number;
  support::writeFile(reportPath(sender), text.str());
}

SenderReport readReport(const std::string& sender) {
  std::istringstream text(support::readFile(reportPath(sender)));
  SenderReport report;
  milliseconds::rep longest = 0;
  std::size_t statuses = 0;
  text >> longest >> statuses;
  report.longestSend = milliseconds(longest);
  for (; statuses > 0; --statuses) {
    int status = 0;
    int times = 0;
    text >> status >> times;
    report.refused[status] = times;
  }
  for (int number = 0; text >> number;) report.accepted.push_back(number);
  return report;
}

// Arguments: the sender's name, how many texts to send, and for how many milliseconds at most.
// Notes "<name> <number>" at the target, one text after the other.
const support::Role senderRole(kSenderRole, [](const std::vector<std::string>& arguments) {
  const std::string& name = arguments.at(0);
  const int count = clientcomm::intValue(arguments.at(1));
  const auto end = Clock::now() + milliseconds(clientcomm::intValue(arguments.at(2)));
  SenderReport report;
  for (int i = 0; i < count && Clock::now() < end; ++i) {
    const auto begin = Clock::now();
    const std::string text[] = {name + " " + std::to_string(i)};
    const OSErr status =
        TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Echo", "note:", text);
    report.longestSend =
        std::max(report.longestSend, std::chrono::ceil<milliseconds>(Clock::now() - begin));
    if (status == clientcomm::noErr) {
      report.accepted.push_back(i);
    } else {
      ++report.refused[status];
    }
  }
  writeReport(name, report);
  return 0;
});

/// The numbers that the target noted, by sender, in its order.
std::map<std::string, std::vector<int>> notesBySender() {
  OptionalString notes;
  TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Echo", "notes", {}, &notes);
  std::map<std::string, std::vector<int>> numbers;
  std::istringstream text(notes.value_or(""));
  std::string name;
  for (int number = 0; text >> name >> number;) numbers[name].push_back(number);
  return numbers;
}

class Load : public testing::Test {
 protected:
  void SetUp() override {
    stress::becomeOrdinaryUser();
    ASSERT_FALSE(HasFatalFailure());
  }

  static ChildProcess launchTarget() {
    ChildProcess target =
        support::runApplication(support::makeApplication("Target", kTarget, support::kEchoRole));
    EXPECT_TRUE(support::waitUntilReachable(kTarget));
    return target;
  }

  static ChildProcess startSender(const std::string& name, int count, milliseconds longest) {
    const std::string sender =
        support::makeApplication(name, "com.example." + name, kSenderRole, {}, "senders");
    return ChildProcess::spawn({support::executableOf(sender), name, std::to_string(count),
                                std::to_string(longest.count())});
  }
};

std::string versionOfHost(int host) {
  constexpr const char* kVersions[] = {"1.0", "1.0.1", "2.0"};
  return kVersions[host % 3];
}

/// Whether the one helper process has come up as `version` and every host has started it.
bool isSettled(const std::string& version, int hosts) {
  const pid_t helper = support::helperPid();
  const std::string own = std::to_string(helper) + " ";
  if (helper == 0 || support::countInJournal(own + "up " + version) == 0) return false;
  const auto lines = support::journal();
  for (int i = 0; i < hosts; ++i) {
    const std::string line = own + "start host" + std::to_string(i) + " ";
    const auto isIt = [&](const std::string& entry) { return entry.starts_with(line); };
    if (std::none_of(lines.begin(), lines.end(), isIt)) return false;
  }
  return true;
}

TEST_F(Load, HostsWithThreeVersionsAtTheSameMomentEndWithOneHelperOfTheNewest) {
  const int count = stress::sizeFor(12, 50);
  std::vector<std::string> paths;
  for (int i = 0; i < count; ++i) {
    paths.push_back(support::makeHost("host" + std::to_string(i), versionOfHost(i)));
  }
  std::vector<ChildProcess> hosts;
  const auto begin = Clock::now();
  for (const auto& path : paths) {
    hosts.push_back(ChildProcess::spawn({support::executableOf(path), "600000"}));
  }
  ASSERT_TRUE(support::waitUntil([&] { return isSettled("2.0", count); }, seconds(120)));
  const auto settled = std::chrono::ceil<milliseconds>(Clock::now() - begin);
  EXPECT_EQ(support::processesOf(support::installedHelperPath()).size(), 1U);
  EXPECT_TRUE(
      support::haveSameContents(support::helperIn(paths[2]), support::installedHelperPath()));
  EXPECT_EQ(std::distance(fs::directory_iterator(support::sandbox() + "/install"), {}), 1);
  const pid_t helper = support::helperPid();
  // Every host's next tick finds everything in order.
  EXPECT_FALSE(support::waitUntil([&] { return support::helperPid() != helper; }, seconds(6)));
  stress::report(std::to_string(count) + " hosts: settled after " +
                 std::to_string(settled.count()) + " ms; helper processes in all " +
                 std::to_string(support::countInJournal(" up ")));
}

TEST_F(Load, EventsOfManyHostsAreCarriedOutOnceEachInTheirSendersOrder) {
  const int senders = stress::sizeFor(8, 64);
  const int events = stress::sizeFor(200, 2000);
  const ChildProcess target = launchTarget();
  std::vector<ChildProcess> processes;
  const auto begin = Clock::now();
  for (int i = 0; i < senders; ++i) {
    processes.push_back(startSender("s" + std::to_string(i), events, seconds(600)));
  }
  for (ChildProcess& process : processes) EXPECT_EQ(process.wait(), 0);
  const auto notes = notesBySender();
  const auto time = std::chrono::ceil<milliseconds>(Clock::now() - begin);
  std::vector<int> all;
  for (int i = 0; i < events; ++i) all.push_back(i);
  milliseconds longest{};
  for (int i = 0; i < senders; ++i) {
    const std::string name = "s" + std::to_string(i);
    const SenderReport report = readReport(name);
    EXPECT_TRUE(report.refused.empty()) << name << ": " << report.refused.begin()->first;
    EXPECT_TRUE(notes.contains(name) && notes.at(name) == all) << name;
    longest = std::max(longest, report.longestSend);
  }
  EXPECT_LE(longest, clientcomm::kHandOverLimit + kSchedulingSlack);
  stress::report(std::to_string(senders) + " hosts with " + std::to_string(events) +
                 " events each: " + std::to_string(time.count()) + " ms; longest send " +
                 std::to_string(longest.count()) + " ms");
}

// The kernel may report the end of a connection to a reader that comes while the last packet and
// the end arrive.
TEST(LoadOfPackets, PacketThatItsSenderSendsAndClosesAfterIsNeverTakenForTheEnd) {
  const int rounds = stress::sizeFor(100'000, 1'000'000);
  const clientcomm::AppleEventDescriptor event =
      clientcomm::AppleEventDescriptor::appleEvent(0, 0, {}, -1, 0);
  std::atomic<int> handedOver = -1;
  std::atomic<bool> isOver = false;
  std::thread sender([&] {
    while (!isOver) {
      const clientcomm::ScopedFd socket(handedOver.exchange(-1));
      if (!socket.isValid()) continue;
      clientcomm::sendPacket(socket.get(), clientcomm::PacketKind::kEvent, 0, event, -1);
    }
  });
  int lost = 0;
  for (int round = 0; round < rounds; ++round) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const clientcomm::ScopedFd socket(ends[0]);
    handedOver = ends[1];
    clientcomm::Packet packet;
    clientcomm::ReceiveResult result = clientcomm::ReceiveResult::kNothingYet;
    while (result == clientcomm::ReceiveResult::kNothingYet) {
      result = clientcomm::receivePacket(socket.get(), packet);
    }
    if (result != clientcomm::ReceiveResult::kPacket) ++lost;
  }
  isOver = true;
  sender.join();
  EXPECT_EQ(lost, 0);
}

// A large event has a descriptor on its way until it is read, and the system lets an ordinary user
// have only so many.
TEST_F(Load, EventsWaitWhileTheUserHasAsManyDescriptorsOnTheirWayAsTheSystemAllows) {
  const ChildProcess target = launchTarget();
  EXPECT_TRUE(notesBySender().empty());  // it has read what was on its way
  const clientcomm::ScopedFd executable(open("/proc/self/exe", O_PATH | O_CLOEXEC));
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  clientcomm::ScopedFd unread(ends[0]);
  const clientcomm::ScopedFd full(ends[1]);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = 32;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  const clientcomm::AppleEventDescriptor event =
      clientcomm::AppleEventDescriptor::appleEvent(0, 0, {}, -1, 0);
  while (clientcomm::sendPacket(full.get(), clientcomm::PacketKind::kEvent, 0, event,
                                executable.get()) == clientcomm::noErr) {
  }
  const auto sendLarge = [](const std::string& name) {
    const std::string texts[] = {name + " " + std::string(2'000'000, '1')};
    return TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Echo", "note:", texts);
  };
  EXPECT_EQ(sendLarge("refused"), clientcomm::errAETimeout);
  unread.reset();
  EXPECT_EQ(sendLarge("accepted"), clientcomm::noErr);
  OptionalString notes;
  TQHPAppleEventSender::share().sendEvnet(OptionalString(kTarget), "Echo", "notes", {}, &notes);
  EXPECT_EQ(notes, "accepted " + std::string(2'000'000, '1') + "\n");
}

TEST_F(Load, HelperThatDoesNotReadBlocksNoHostLongerThanPromisedAndLosesNothingAccepted) {
  const int senders = stress::sizeFor(4, 16);
  const seconds silence(stress::sizeFor(7, 20));
  const ChildProcess target = launchTarget();
  target.signal(SIGSTOP);
  std::vector<ChildProcess> processes;
  for (int i = 0; i < senders; ++i) {
    processes.push_back(startSender("s" + std::to_string(i), 1'000'000, silence));
  }
  stress::pause(silence);
  target.signal(SIGCONT);
  for (ChildProcess& process : processes) EXPECT_EQ(process.wait(), 0);
  const auto notes = notesBySender();
  milliseconds longest{};
  std::size_t accepted = 0;
  std::map<int, int> refused;
  for (int i = 0; i < senders; ++i) {
    const std::string name = "s" + std::to_string(i);
    const SenderReport report = readReport(name);
    const auto carriedOut = notes.find(name);
    const bool isAny = carriedOut != notes.end();
    EXPECT_EQ(report.accepted, isAny ? carriedOut->second : std::vector<int>()) << name;
    longest = std::max(longest, report.longestSend);
    accepted += report.accepted.size();
    for (const auto& [status, times] : report.refused) refused[status] += times;
  }
  EXPECT_LE(longest, clientcomm::kHandOverLimit + kSchedulingSlack);
  EXPECT_GT(accepted, 0U);
  for (const auto& [status, times] : refused) {
    EXPECT_EQ(status, clientcomm::errAETimeout) << times << " times";
  }
  stress::report(std::to_string(senders) + " hosts before a helper that is silent for " +
                 std::to_string(silence.count()) + " s: accepted and carried out " +
                 std::to_string(accepted) + ", timed out " +
                 std::to_string(refused[clientcomm::errAETimeout]) + ", longest send " +
                 std::to_string(longest.count()) + " ms");
}

}  // namespace
