#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/async.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/endpoint_name.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/integration/diagnosis_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// Why a query is not sent, or not answered.

namespace {

namespace raw = support::raw;
using clientcomm::OptionalString;
using diagnosis::Record;
using diagnosis::Row;
using support::ChildProcess;
using enum clientcomm::DiagnosticCause;

using Records = std::vector<Record>;

constexpr char kHost[] = "com.example.testhost";

std::string peer() { return support::helperIdentifier(); }

OSErr ask(const OptionalString& target, std::string_view className, std::string_view selector) {
  OptionalString result;
  return TQHPAppleEventSender::share().sendEvnet(target, className, selector, {}, &result);
}

/// Asks the caller back, which waits for the answer.
class Receiver : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls =
        new clientcomm::Class("Receiver", clientcomm::makeShared<Receiver>,
                              {clientcomm::method<&Receiver::askBack>("askBack")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void askBack() { EXPECT_EQ(ask(peer(), "Echo", "notes"), clientcomm::errAETimeout); }
};

const support::Role askingRole("asking", [](const std::vector<std::string>&) {
  TQHPAppleEventProcesser::share();
  return ask(kHost, "Receiver", "askBack") == clientcomm::noErr ? 0 : 1;
});

/// Answers every packet by a reply with the status in the first argument, or by rubbish.
const support::Role answeringRole("answering", [](const std::vector<std::string>& arguments) {
  const OptionalString identifier = clientcomm::Bundle::mainBundle().bundleIdentifier();
  clientcomm::EndpointName name(*identifier, clientcomm::kHighestWireVersion);
  clientcomm::ScopedFd listener;
  if (name.take(listener, clientcomm::EndpointName::IfTaken::kReplace) != clientcomm::noErr) {
    return 2;
  }
  raw::Header header;
  header.kind = static_cast<std::uint8_t>(clientcomm::PacketKind::kReply);
  if (arguments[0] != "rubbish") header.status = static_cast<std::int16_t>(std::stoi(arguments[0]));
  for (;;) {
    pollfd entry{listener.get(), POLLIN, 0};
    poll(&entry, 1, -1);
    const clientcomm::ScopedFd caller(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!caller.isValid()) continue;
    raw::receive(caller.get());
    raw::send(caller.get(), arguments[0] == "rubbish" ? "rubbish" : raw::packet(header));
  }
});

ChildProcess& runPeer(const char* role = support::kEchoRole,
                      const std::vector<std::string>& arguments = {}) {
  static auto* const child = [&] {
    auto* const started = new ChildProcess(
        support::runApplication(support::makeApplication("Peer", peer(), role), arguments));
    EXPECT_TRUE(support::waitUntilReachable(peer()));
    return started;
  }();
  return *child;
}

OSErr askWithin(std::int32_t ticks) {
  auto event = clientcomm::AppleEventDescriptor::appleEvent(
      clientcomm::kCallEventClass, clientcomm::kCallEventID,
      {clientcomm::typeApplicationBundleID, peer()}, 1, 0);
  clientcomm::AppleEventDescriptor reply;
  return clientcomm::AESendMessage(event, reply, clientcomm::kAEWaitReply, ticks);
}

Row answered(const char* name, clientcomm::DiagnosticCause cause, const char* answer,
             const Record& expected) {
  return {name, cause, [answer] { runPeer("answering", {answer}); },
          [] { ask(peer(), "Echo", "notes"); },
          [expected] {
            Record record = expected;
            record.subject = peer();
            return Records{record};
          }};
}

/// Asks with ever more descriptors, from none on, until the query goes out.
void askWithFewDescriptors() {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit few = before;
  for (few.rlim_cur = 3; few.rlim_cur < 64; ++few.rlim_cur) {
    setrlimit(RLIMIT_NOFILE, &few);
    if (TQHPAppleEventSender::share().sendEvnet(OptionalString(peer()), "Echo", "note:", {}) ==
        clientcomm::noErr) {
      break;
    }
  }
  setrlimit(RLIMIT_NOFILE, &before);
}

const Row kRows[] = {
    answered("AnswerIsMalformed", kReplyMalformed, "rubbish", {kReplyMalformed, "", "", 0}),
    answered("CallIsRefused", kCallRefused, "-50", {kCallRefused, "", "", -50}),
    answered("CallerIsNotIdentified", kCallerNotIdentified, "-1743",
             {kCallerNotIdentified, "", "", -1743}),
    {"AnswerIsLate", kReplyLate, [] { runPeer(); },
     [] {
       runPeer().signal(SIGSTOP);
       EXPECT_EQ(askWithin(6), clientcomm::errAETimeout);
       runPeer().signal(SIGCONT);
     },
     [] {
       return Records{{kReplyLate, peer(), "poll", clientcomm::errAETimeout}};
     }},
    {"AnswerWithoutBlockingIsLate", kReplyLate, [] { runPeer(); },
     [] {
       runPeer().signal(SIGSTOP);
       bool isOver = false;
       const auto query = TQHPAppleEventSender::share().sendEvnetAsync(
           peer(), "Echo", "notes", {},
           [&](OSErr status, const std::optional<std::string>&) {
             EXPECT_EQ(status, clientcomm::errAETimeout);
             isOver = true;
           },
           std::chrono::milliseconds(50));
       EXPECT_TRUE(support::runLoopUntil([&] { return isOver; }));
       runPeer().signal(SIGCONT);
     },
     [] {
       return Records{{kReplyLate, peer(), "", clientcomm::errAETimeout}};
     }},
    {"TargetIsNoApplication", kCallNotBuilt, nullptr,
     [] {
       auto event = clientcomm::AppleEventDescriptor::appleEvent(
           clientcomm::kCallEventClass, clientcomm::kCallEventID,
           clientcomm::AppleEventDescriptor::descriptorWithString("a text"), 1, 0);
       clientcomm::AppleEventDescriptor reply;
       EXPECT_EQ(clientcomm::AESendMessage(event, reply, clientcomm::kAENoReply, 0),
                 clientcomm::paramErr);
     },
     [] {
       return Records{{kCallNotBuilt, "a text", "checkEvent", clientcomm::paramErr}};
     }},
    {"TwoApplicationsAskEachOther", kMutualWait,
     [] {
       clientcomm::registerClass(Receiver::staticClass());
       TQHPAppleEventProcesser::share();
     },
     [] {
       ChildProcess other =
           support::runApplication(support::makeApplication("Peer", peer(), "asking"));
       EXPECT_TRUE(support::runLoopUntil([] { return diagnosis::hasRecord(kMutualWait); }));
       EXPECT_EQ(other.wait(), 0);
     },
     [] {
       return Records{{kMutualWait, peer(), "", clientcomm::errAETimeout}};
     }},
    {"SenderIsOutOfDescriptors", kNoResourcesToSend, [] { runPeer(); }, askWithFewDescriptors,
     [] {
       return Records{{kNoResourcesToSend, peer(), "socket", EMFILE}};
     }},
};

const diagnosis::Rows noted(kRows);

class AnswerFailure : public diagnosis::Table {};

TEST_P(AnswerFailure, IsReportedOnce) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Diagnosis, AnswerFailure, testing::ValuesIn(kRows), diagnosis::nameOf);

}  // namespace
