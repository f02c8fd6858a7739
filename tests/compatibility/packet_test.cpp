#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/launch_record_format.h"
#include "ClientComm/platform/linux/socket_format.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/compatibility/raw_endpoint.h"
#include "tests/support/child_process.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// The packets of version 1 as committed bytes: the library produces the same and reads them, and
// docs/wire-format.md shows them.

namespace {

using clientcomm::OptionalString;
using clientcomm::ScopedFd;
using support::ChildProcess;
namespace raw = support::raw;

constexpr char kHelper[] = "com.example.helper";

// The sender's token, which is another in each process.
constexpr std::size_t kTokenOffset = offsetof(clientcomm::PacketHeader, token);
constexpr std::size_t kTokenSize = sizeof(clientcomm::PacketHeader::token);

std::string bytesOfHex(const std::string& text) {
  std::istringstream words(text);
  std::string bytes;
  for (std::string word; words >> word;) {
    bytes += static_cast<char>(std::stoul(word, nullptr, 16));
  }
  return bytes;
}

std::string packet(const std::string& name) {
  const std::string text = support::readFile(std::string(PACKET_FOLDER) + "/" + name + ".hex");
  EXPECT_FALSE(text.empty()) << name;
  return bytesOfHex(text);
}

std::string withoutToken(std::string packet) {
  return packet.size() < clientcomm::kPacketHeaderSize
             ? packet
             : packet.replace(kTokenOffset, kTokenSize, kTokenSize, '\0');
}

/// The hexadecimal dumps of the page, in their order.
std::vector<std::string> dumpsOfThePage() {
  constexpr std::size_t kHexOffset = 6;  // behind "0000  "
  constexpr std::size_t kHexLength = 47;
  std::vector<std::string> dumps;
  std::ifstream page(WIRE_FORMAT_PAGE);
  for (std::string line; std::getline(page, line);) {
    const bool isDump = line.size() > kHexOffset &&
                        line.find_first_not_of("0123456789abcdef") == 4 && line[4] == ' ';
    if (!isDump) continue;
    if (line.starts_with("0000")) dumps.emplace_back();
    dumps.back() += bytesOfHex(line.substr(kHexOffset, kHexLength));
  }
  return dumps;
}

TEST(Packets, OfThePageAreTheCommittedOnes) {
  const std::vector<std::string> expected = {packet("is-alive-event"),  packet("start-event"),
                                             packet("client-id-query"), packet("client-id-reply"),
                                             packet("nil-reply"),       packet("not-handled-reply"),
                                             packet("show-event")};
  EXPECT_EQ(dumpsOfThePage(), expected);
}

/// As the page writes a limit.
std::string secondsOf(std::chrono::milliseconds limit) {
  return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(limit).count()) + " s";
}

std::string thousandsOf(std::size_t number) {
  std::string text = std::to_string(number);
  for (std::size_t end = text.size(); end > 3; end -= 3) text.insert(end - 3, ",");
  return text;
}

TEST(Page, StatesTheConstantsOfTheCode) {
  using std::to_string;
  const std::string page = support::readFile(WIRE_FORMAT_PAGE);
  const std::string facts[] = {
      "event of kind 1 | " + secondsOf(clientcomm::kHandOverLimit) + " |",
      "`AESendMessage` with the default time-out | " + secondsOf(clientcomm::kReplyLimit) + " |",
      "while waiting | every " + secondsOf(clientcomm::kLivenessInterval) + " |",
      "has not opened | every " + to_string(clientcomm::kTryInterval.count()) + " µs |",
      "less than " + secondsOf(clientcomm::kLaunchLimit) + " ago",
      "silent connection at the receiver | " + secondsOf(clientcomm::kIdleLimit) + " |",
      "to the same receiver | " + secondsOf(clientcomm::kHandshakeValidity) + " |",
      "at most " + to_string(clientcomm::kMaximumIdleConnections) + " silent connections",
      "the name every " + secondsOf(clientcomm::kVerifyInterval) + " while it sends, and every " +
          secondsOf(clientcomm::kIdleVerifyInterval) + " otherwise",
      "a backlog of " + to_string(clientcomm::kEndpointBacklog) + ".",
      "flattened event or reply | " + thousandsOf(clientcomm::kMaximumFlattenedSize) + " bytes",
      "parameter level 2 | " + to_string(clientcomm::kMaximumNesting) + " |",
      "lists, and items | " + thousandsOf(clientcomm::kMaximumDescriptors) + " |",
      "parameters of one event | " + to_string(clientcomm::kMaximumKeywords) + " each |",
      "bytes of a packet | " + thousandsOf(clientcomm::kMaximumPacketSize) + " |",
      "descriptors with a packet | " + to_string(clientcomm::kMaximumDescriptorsPerPacket) + " |"};
  for (const std::string& fact : facts) {
    EXPECT_NE(page.find(fact), std::string::npos) << fact;
  }
}

TEST(Packets, OfAHostAreTheCommittedOnes) {
  clientcomm::PropertyListDictionary info = support::defaultHostInfo();
  info.insert_or_assign(kHelperBundleId, std::string(kHelper));
  support::writeHostInfo(info);
  ChildProcess helper = ChildProcess::fork([] {
    return compatibility::serveRaw(kHelper, compatibility::boundNameOf(kHelper, "1"),
                                   {"", "", packet("client-id-reply"), ""});
  });
  ASSERT_TRUE(compatibility::waitForEndpoint(kHelper));
  TQHPHelperControl& control = TQHPHelperControl::share();
  EXPECT_EQ(control.isAlive("1001", "2.3"), 0);
  EXPECT_EQ(control.start("1001", "2.3"), 0);
  EXPECT_EQ(TQHPGetDataByHelper::share().clientIDFormHelper(), "one-for-all");
  EXPECT_EQ(control.show("1001", "2.3"), 0);
  EXPECT_EQ(helper.wait(), 0);
  const char* const names[] = {"is-alive-event", "start-event", "client-id-query", "show-event"};
  const std::string token = compatibility::receivedPacket(0).substr(kTokenOffset, kTokenSize);
  for (std::size_t i = 0; i < std::size(names); ++i) {
    const std::string sent = compatibility::receivedPacket(i);
    EXPECT_EQ(withoutToken(sent), withoutToken(packet(names[i]))) << names[i];
    EXPECT_EQ(sent.substr(kTokenOffset, kTokenSize), token) << names[i];
  }
}

class Query : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls =
        new clientcomm::Class("TQHPGetDataByHelper", clientcomm::makeShared<Query>,
                              {clientcomm::method<&Query::clientID>("clientIDFormHelper")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  OptionalString clientID() { return "one-for-all"; }
};

const support::Role helper("helper", [](const std::vector<std::string>& /*arguments*/) {
  clientcomm::registerClass(Query::staticClass());
  TQHPAppleEventProcesser::share();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
  return 0;
});

/// What the helper answers to the packet.
std::string answerTo(const std::string& query) {
  const ScopedFd peer = raw::connectTo(kHelper);
  EXPECT_TRUE(raw::send(peer.get(), query));
  return raw::receive(peer.get());
}

TEST(Packets, OfAHelperAreTheCommittedOnes) {
  const ChildProcess application =
      support::runApplication(support::makeApplication("Helper", kHelper, "helper"));
  ASSERT_TRUE(support::waitUntilReachable(kHelper));
  const std::string query = packet("client-id-query");
  EXPECT_EQ(answerTo(query), packet("client-id-reply"));
  std::string unknownSelector = query;
  unknownSelector.replace(query.find("clientID"), 8, "clientid");
  EXPECT_EQ(answerTo(unknownSelector), packet("nil-reply"));
  std::string unknownEvent = query;
  unknownEvent.replace(query.find("llac"), 4, "tiuq");
  EXPECT_EQ(answerTo(unknownEvent), packet("not-handled-reply"));
}

TEST(Packets, SayWhatTheirBytesSay) {
  const std::string show = packet("show-event");
  const auto event = clientcomm::unflatten(std::string_view(show).substr(20));
  ASSERT_TRUE(event);
  EXPECT_EQ(event->eventClass(), 0x61657674U);
  EXPECT_EQ(event->eventID(), 0x63616c6cU);
  EXPECT_EQ(event->returnID(), -1);
  EXPECT_EQ(event->transactionID(), 0);
  EXPECT_EQ(event->target().data(), kHelper);
  EXPECT_TRUE(event->attributes().empty());
  const auto* const call = event->paramDescriptorForKeyword(0x2d2d2d2dU);
  ASSERT_NE(call, nullptr);
  ASSERT_EQ(call->numberOfItems(), 3U);
  EXPECT_EQ(call->descriptorAtIndex(1)->stringValue(), "TQHPHelperControl");
  EXPECT_EQ(call->descriptorAtIndex(2)->stringValue(), "show:prodeuctVersion:");
  ASSERT_EQ(call->descriptorAtIndex(3)->numberOfItems(), 2U);
  EXPECT_EQ(call->descriptorAtIndex(3)->descriptorAtIndex(1)->stringValue(), "1001");
  EXPECT_EQ(call->descriptorAtIndex(3)->descriptorAtIndex(2)->stringValue(), "2.3");
}

}  // namespace
