#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/integration/diagnosis_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/permissions.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// Why a call does not arrive, and why one that has arrived is not carried out.

namespace {

namespace fs = std::filesystem;
namespace raw = support::raw;
using clientcomm::OptionalString;
using diagnosis::at;
using diagnosis::Record;
using diagnosis::Row;
using support::ChildProcess;
using enum clientcomm::DiagnosticCause;

using Records = std::vector<Record>;

constexpr char kHost[] = "com.example.testhost";

std::string peer() { return support::helperIdentifier(); }

/// What takes calls in this process.
class Receiver : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls = new clientcomm::Class(
        "Receiver", clientcomm::makeShared<Receiver>,
        {clientcomm::method<&Receiver::fail>("fail"), clientcomm::method<&Receiver::ask>("ask"),
         clientcomm::method<&Receiver::vanish>("vanish")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void fail() { throw std::runtime_error("no"); }
  void ask() {}
  void vanish() { _exit(0); }
};

/// Never answers.
class Owing final : public TQHPProductUpgradeCallBackDelegate {
 public:
  void productWillUpgrade(const clientcomm::Error* /*error*/) override {}
};

constexpr char kVanishingRole[] = "vanishing";

const support::Role vanishingRole(kVanishingRole, [](const std::vector<std::string>&) {
  clientcomm::registerClass(Receiver::staticClass());
  TQHPAppleEventProcesser::share();
  while (!support::runLoopUntil([] { return false; })) {
  }
  return 0;
});

// Opens an endpoint without a handler of calls.
const support::Role deafRole("deaf", [](const std::vector<std::string>&) {
  clientcomm::AppleEventManager::sharedAppleEventManager().setEventHandler(
      [](const clientcomm::AppleEventDescriptor&, clientcomm::AppleEventDescriptor&) {
        return clientcomm::noErr;
      },
      clientcomm::kCallEventClass, clientcomm::kAnswerEventID);
  while (!support::runLoopUntil([] { return false; })) {
  }
  return 0;
});

ChildProcess& runPeer(const char* role = support::kEchoRole) {
  static auto* const child = [role] {
    auto* const started =
        new ChildProcess(support::runApplication(support::makeApplication("Peer", peer(), role)));
    EXPECT_TRUE(support::waitUntilReachable(peer()));
    return started;
  }();
  return *child;
}

void receive() {
  clientcomm::registerClass(Receiver::staticClass());
  TQHPAppleEventProcesser::share();
}

OSErr send(const OptionalString& target, const std::vector<std::string>& arguments = {}) {
  return TQHPAppleEventSender::share().sendEvnet(target, "Echo", "note:", arguments);
}

OSErr ask(const std::string& target, std::string_view className, std::string_view selector,
          const std::vector<std::string>& arguments = {}) {
  OptionalString result;
  return TQHPAppleEventSender::share().sendEvnet(target, className, selector, arguments, &result);
}

void askSelf(std::string_view className, std::string_view selector,
             const std::vector<std::string>& arguments = {}) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ask(kHost, className, selector, arguments), clientcomm::noErr);
  }
}

void untilRecord(clientcomm::DiagnosticCause cause) {
  EXPECT_TRUE(support::runLoopUntil([cause] { return diagnosis::hasRecord(cause); }));
}

void fill(std::size_t texts) {
  const std::vector<std::string> arguments(texts, std::string(std::size_t{16} << 20, 'x'));
  EXPECT_EQ(send(peer(), arguments), clientcomm::memFullErr);
}

/// A process that asks to watch the calls of this one and does not know the proof. It ends with
/// status 0 once it is answered.
ChildProcess& watcher() {
  static auto* const child = new ChildProcess(ChildProcess::fork([] {
    const auto socket = raw::connectTo(kHost);
    raw::Header header;
    header.kind = static_cast<std::uint8_t>(clientcomm::PacketKind::kWatch);
    const bool isSent = raw::send(socket.get(), raw::packet(header, "no proof"));
    return isSent && !raw::receive(socket.get()).empty() ? 0 : 1;
  }));
  return *child;
}

const Row kRows[] = {
    {"TargetDoesNotRun", kTargetNotRunning, nullptr,
     [] {
       for (int i = 0; i < 3; ++i) EXPECT_EQ(send("com.example.absent"), clientcomm::procNotFound);
     },
     [] {
       return Records{{kTargetNotRunning, "com.example.absent", "connect", ENOENT}};
     }},
    {"TargetHasBeenKilled", kTargetNotRunning, [] { runPeer(); },
     [] {
       runPeer().signal(SIGKILL);
       runPeer().wait();
       EXPECT_EQ(send(peer()), clientcomm::procNotFound);
     },
     [] {
       return Records{{kTargetNotRunning, peer(), "connect", ECONNREFUSED}};
     }},
    {"TargetIsMissing", kTargetMissing, nullptr,
     [] { EXPECT_EQ(send(std::nullopt), clientcomm::procNotFound); },
     [] {
       return Records{{kTargetMissing, "", "checkEvent", clientcomm::procNotFound}};
     }},
    {"CallIsTooLarge", kCallTooLarge, nullptr, [] { fill(5); },
     [] {
       return Records{{kCallTooLarge, peer(), "checkEvent", clientcomm::memFullErr}};
     }},
    {"TargetIsBusy", kTargetBusy, [] { runPeer(); },
     [] {
       runPeer().signal(SIGSTOP);
       const auto queue = raw::fillQueue(peer());
       const clientcomm::AEHandOverLimit limit(std::chrono::milliseconds(50));
       EXPECT_EQ(send(peer()), clientcomm::errAETimeout);
       runPeer().signal(SIGCONT);
     },
     [] {
       return Records{{kTargetBusy, peer(), "connect", EAGAIN}};
     }},
    {"TargetBelongsToAnotherUser", kTargetNotPermitted,
     [] {
       if (geteuid() != 0) return;
       runPeer();
       const clientcomm::ScopedFd folder =
           clientcomm::openRuntimeFolder(clientcomm::IfMissing::kFail);
       const std::string name = clientcomm::fileNameForIdentifier(peer());
       // Its mode is 0600.
       ASSERT_EQ(fchmodat(folder.get(), name.c_str(), 0, 0), 0);
       ASSERT_EQ(fchownat(folder.get(), name.c_str(), 65534, 65534, 0), 0);
       static auto* const bound = new support::BoundByPermissions;
       static_cast<void>(bound);
     },
     [] {
       if (geteuid() != 0) return;
       EXPECT_EQ(send(peer()), clientcomm::errAEEventNotPermitted);
     },
     [] {
       if (geteuid() != 0) return Records{};
       return Records{{kTargetNotPermitted, peer(), "connect", EACCES}};
     }},
    {"TargetGoesWhileItAnswers", kConnectionLost, [] { runPeer(kVanishingRole); },
     [] { EXPECT_EQ(ask(peer(), "Receiver", "vanish"), clientcomm::connectionInvalid); },
     [] {
       Record expected{kConnectionLost, peer(), "recvmsg", clientcomm::connectionInvalid};
       // The end of the process is seen by its socket or by its ID.
       if (diagnosis::records().size() == 1 && diagnosis::records()[0].call == "kill") {
         expected.call = "kill";
       }
       return Records{expected};
     }},
    {"TargetHasNoHandler", kCallNotHandled, [] { runPeer("deaf"); },
     [] { EXPECT_EQ(ask(peer(), "Echo", "notes"), clientcomm::errAEEventNotHandled); },
     [] {
       return Records{{kCallNotHandled, peer(), "", clientcomm::errAEEventNotHandled}};
     }},
    {"RuntimeFolderIsAFile", kRuntimeFolderUnusable,
     [] {
       fs::remove_all(at("runtime/ClientComm"));
       support::writeFile(at("runtime/ClientComm"), "");
     },
     [] { receive(); },
     [] {
       return Records{{kRuntimeFolderUnusable, at("runtime/ClientComm"), "open", ENOTDIR}};
     }},
    {"HostHasNoIdentifier", kOwnIdentifierMissing,
     [] { diagnosis::writeInfo({"CFBundleIdentifier"}); }, [] { receive(); },
     [] {
       return Records{{kOwnIdentifierMissing, support::hostBundlePath(), "", 0}};
     }},
    {"ClassIsUnknown", kClassUnknown, receive, [] { askSelf("Nothing", "ask"); },
     [] {
       return Records{{kClassUnknown, "Nothing", "", 0, "ask"}};
     }},
    {"SelectorIsUnknown", kSelectorUnknown, receive, [] { askSelf("Receiver", "ask:"); },
     [] {
       return Records{{kSelectorUnknown, "Receiver", "", 0, "ask:"}};
     }},
    {"CallThrows", kCallThrew, receive, [] { askSelf("Receiver", "fail"); },
     [] {
       return Records{{kCallThrew, "Receiver", "", 0, "fail"}};
     }},
    {"CallHasTooManyArguments", kCallThrew, receive, [] { askSelf("Receiver", "ask", {"one"}); },
     [] {
       return Records{{kCallThrew, "Receiver", "", 0, "ask"}};
     }},
    {"UpgradeNoticeHasNoDelegate", kNoDelegate,
     [] {
       receive();
       TQHPUpgradeByHelper::share();
     },
     [] {
       askSelf("TQHPUpgradeByHelper", "productUpgradeCallBack::::", {"", "", "0", ""});
     },
     [] {
       return Records{{kNoDelegate, "productWillUpgrade:", "", 0}};
     }},
    {"UpgradeNoticeIsNotAnsweredYet", kUpgradeNoticeIgnored,
     [] {
       static Owing delegate;
       receive();
       TQHPUpgradeByHelper::share().setProductUpgradeDelegate(&delegate);
     },
     [] {
       askSelf("TQHPUpgradeByHelper", "productUpgradeCallBack::::", {"", "", "0", ""});
     },
     [] {
       return Records{{kUpgradeNoticeIgnored, "TQHPUpgradeByHelper", "", 0},
                      {kTargetNotRunning, peer(), "connect", ENOENT}};
     }},
    {"PacketIsMalformed", kPacketMalformed, receive,
     [] {
       const auto socket = raw::connectTo(kHost);
       ASSERT_TRUE(raw::send(socket.get(), "rubbish"));
       untilRecord(kPacketMalformed);
     },
     [] {
       return Records{{kPacketMalformed, "", "", getpid()}};
     }},
    {"PacketIsOfALaterVersion", kPacketUnsupported, receive,
     [] {
       const auto socket = raw::connectTo(kHost);
       raw::Header header;
       header.version = clientcomm::kHighestWireVersion + 1;
       ASSERT_TRUE(raw::send(socket.get(), raw::packet(header)));
       untilRecord(kPacketUnsupported);
     },
     [] {
       return Records{{kPacketUnsupported, "", "", getpid()}};
     }},
    {"CallerIsSilent", kCallerSilent, receive,
     [] {
       const auto socket = raw::connectTo(kHost);
       untilRecord(kCallerSilent);
     },
     [] {
       return Records{{kCallerSilent, "", "", getpid()}};
     }},
    {"WatcherIsRefused", kWatcherRefused, receive,
     [] {
       watcher();
       untilRecord(kWatcherRefused);
       EXPECT_EQ(watcher().wait(), 0);
     },
     [] {
       return Records{{kWatcherRefused, "", "", watcher().pid()}};
     }},
    {"EndpointIsLost", kEndpointLost, receive,
     [] {
       fs::remove_all(clientcomm::runtimeFolderPath());
       untilRecord(kEndpointLost);
     },
     [] {
       return Records{{kEndpointLost, clientcomm::runtimeFolderPath(), "", 0}};
     }},
};

const diagnosis::Rows noted(kRows);

class CallFailure : public diagnosis::Table {};

TEST_P(CallFailure, IsReportedOnce) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Diagnosis, CallFailure, testing::ValuesIn(kRows), diagnosis::nameOf);

}  // namespace
