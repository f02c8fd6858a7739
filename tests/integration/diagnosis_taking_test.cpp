#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/async.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/integration/diagnosis_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// Why a process takes no calls, or not this one.

namespace {

namespace fs = std::filesystem;
namespace raw = support::raw;
using diagnosis::at;
using diagnosis::Record;
using diagnosis::Row;
using support::ChildProcess;
using enum clientcomm::DiagnosticCause;

using Records = std::vector<Record>;

constexpr char kHost[] = "com.example.testhost";

/// A registered object that takes no calls.
class Silent : public clientcomm::Object {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls =
        new clientcomm::Class("Silent", clientcomm::makeShared<Silent>, {});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }
};

const support::Role callingRole("calling", [](const std::vector<std::string>&) {
  // The system then says that the program is outside any bundle.
  fs::rename(clientcomm::ownExecutablePath(),
             clientcomm::Bundle::mainBundle().bundlePath() + "-program");
  TQHPAppleEventSender::share().sendEvnet(clientcomm::OptionalString(kHost), "Silent", "note:", {});
  return 0;
});

void receive() {
  clientcomm::registerClass(Silent::staticClass());
  TQHPAppleEventProcesser::share();
}

void untilRecord(clientcomm::DiagnosticCause cause) {
  EXPECT_TRUE(support::runLoopUntil([cause] { return diagnosis::hasRecord(cause); }));
}

/// Sends the event as a peer and waits for the record.
void sendRaw(const std::string& event, clientcomm::DiagnosticCause cause,
             clientcomm::PacketKind kind = clientcomm::PacketKind::kEvent) {
  const auto socket = raw::connectTo(kHost);
  raw::Header header;
  header.kind = static_cast<std::uint8_t>(kind);
  ASSERT_TRUE(raw::send(socket.get(), raw::packet(header, event)));
  untilRecord(cause);
}

std::string inRuntimeFolder(const std::string& name) {
  return clientcomm::runtimeFolderPath() + "/" + name;
}

std::string endpointName() { return clientcomm::fileNameForIdentifier(kHost); }

/// Leaves this process no descriptor, while it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    constexpr rlim_t kFew = 64;
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit few = {kFew, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
    for (;;) {
      clientcomm::ScopedFd copy(dup(STDERR_FILENO));
      if (!copy.isValid()) return;
      taken_.push_back(std::move(copy));
    }
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
  std::vector<clientcomm::ScopedFd> taken_;
};

const Row kRows[] = {
    {"EventIsOfAnotherKind", kEventNotHandled, receive,
     [] { sendRaw(raw::event(kHost, clientcomm::fourCharCode("none"), {}), kEventNotHandled); },
     [] {
       return Records{{kEventNotHandled, "", "", clientcomm::errAEEventNotHandled}};
     }},
    {"CallNamesNoClass", kCallIncomplete, receive,
     [] {
       sendRaw(raw::event(kHost, clientcomm::kCallEventID,
                          {{clientcomm::keyDirectObject, raw::list(0, "")}}),
               kCallIncomplete);
     },
     [] {
       return Records{{kCallIncomplete, "", "", 0}};
     }},
    {"ClassTakesNoCalls", kClassTakesNoCalls, receive,
     [] {
       sendRaw(raw::event(kHost, clientcomm::kCallEventID,
                          {{clientcomm::keyDirectObject, raw::callList("Silent", "note:", "")}}),
               kClassTakesNoCalls);
     },
     [] {
       return Records{{kClassTakesNoCalls, "Silent", "", 0, "note:"}};
     }},
    {"CallerIsNoApplication", kCallerWithoutIdentifier, receive,
     [] {
       ChildProcess caller = support::runApplication(
           support::makeApplication("Caller", "com.example.caller", "calling"));
       untilRecord(kCallerWithoutIdentifier);
       EXPECT_EQ(caller.wait(), 0);
       EXPECT_EQ(diagnosis::records().front().code, caller.pid());
     },
     [] {
       return Records{{kCallerWithoutIdentifier, "", "", diagnosis::records().front().code}};
     }},
    {"CallerBelongsToAnotherUser", kCallOfAnotherUser, receive,
     [] {
       if (geteuid() != 0) return;
       const auto socket = raw::connectTo(kHost);
       // The caller's user is that of the moment in which it connected.
       ASSERT_EQ(seteuid(65534), 0);
       untilRecord(kCallOfAnotherUser);
       ASSERT_EQ(seteuid(0), 0);
     },
     [] {
       if (geteuid() != 0) return Records{};
       return Records{{kCallOfAnotherUser, "", "", getpid()}};
     }},
    {"CallerIsGoneBeforeItsAnswer", kReplyNotSent, receive,
     [] {
       {
         const auto socket = raw::connectTo(kHost);
         raw::Header header;
         header.kind = static_cast<std::uint8_t>(clientcomm::PacketKind::kEventWantingReply);
         ASSERT_TRUE(raw::send(
             socket.get(),
             raw::packet(header, raw::event(kHost, clientcomm::kCallEventID,
                                            {{clientcomm::keyDirectObject, raw::list(0, "")}}))));
       }
       untilRecord(kReplyNotSent);
     },
     [] {
       Records expected{{kCallIncomplete, "", "", 0}};
       expected.push_back(diagnosis::records().back());
       return expected;
     }},
    {"ProcessIsOutOfDescriptors", kAcceptingPaused, receive,
     [] {
       const auto socket = raw::connectTo(kHost);
       const NoDescriptors none;
       untilRecord(kAcceptingPaused);
     },
     [] {
       return Records{{kAcceptingPaused, "", "accept4", EMFILE}};
     }},
    {"EndpointIsTakenByAnother", kEndpointTaken, receive,
     [] {
       static auto* const other = new ChildProcess(
           support::runApplication(support::makeApplication("Other", kHost, support::kEchoRole)));
       static_cast<void>(other);
       untilRecord(kEndpointTaken);
     },
     [] {
       return Records{{kEndpointTaken, clientcomm::runtimeFolderPath(), "", 0}};
     }},
    {"EndpointHasAFolderInItsPlace", kEndpointNotOpened,
     [] {
       clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
       fs::create_directories(inRuntimeFolder(endpointName()) + "/full");
     },
     receive,
     [] {
       return Records{
           {kEndpointNotOpened, clientcomm::runtimeFolderPath(), "bindAndListen", EISDIR}};
     }},
    {"RecordHasAFolderInItsPlace", kOwnRecordNotWritten,
     [] {
       clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
       fs::create_directories(inRuntimeFolder(clientcomm::processRecordName(getpid())) + "/full");
     },
     receive,
     [] {
       return Records{
           {kOwnRecordNotWritten, clientcomm::processRecordName(getpid()), "renameat", EISDIR}};
     }},
    {"FileCannotBeRemoved", kRuntimeFileNotRemoved, [] { fs::create_directory(at("folder")); },
     [] { clientcomm::discardFile(AT_FDCWD, at("folder").c_str()); },
     [] {
       return Records{{kRuntimeFileNotRemoved, at("folder"), "unlinkat", EISDIR}};
     }},
    {"HostsOwnFunctionThrows", kOperationAbandoned, nullptr,
     [] {
       TQHPAppleEventSender::share()
           .sendEvnetAsync("com.example.absent", "Silent", "note:", {},
                           [](OSErr, const std::optional<std::string>&) {
                             throw std::runtime_error("of the host");
                           })
           .detach();
       untilRecord(kOperationAbandoned);
     },
     [] {
       return Records{{kTargetNotRunning, "com.example.absent", "connect", ENOENT},
                      {kOperationAbandoned, "of the host", "", 0}};
     }},
};

const diagnosis::Rows noted(kRows);

class TakingFailure : public diagnosis::Table {};

TEST_P(TakingFailure, IsReportedOnce) {
#ifdef __SANITIZE_ADDRESS__
  // Built together with that of undefined behaviour, which opens a pipe to read memory safely.
  if (GetParam().cause == kAcceptingPaused)
    GTEST_SKIP() << "the sanitizer needs descriptors itself";
#endif
  runRow();
}

INSTANTIATE_TEST_SUITE_P(Diagnosis, TakingFailure, testing::ValuesIn(kRows), diagnosis::nameOf);

}  // namespace
