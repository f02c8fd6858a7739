// What peers can do to an application's endpoint, in any order: connect, say something, nothing,
// half or rubbish, hand descriptors over, and go. Every event that is well-formed must be handled,
// once, whatever the others do.
//
// The input: steps, each a byte (the kind in its upper half, the peer in its lower half) and what
// the step takes.

#include <fcntl.h>
#include <glib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_endpoint.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"
#include "fuzz/fuzz.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OSErr;
using clientcomm::Packet;
using clientcomm::PacketKind;
using clientcomm::ReceiveResult;
using clientcomm::ScopedFd;
using fuzz::require;

constexpr const char* kIdentifier = "com.example.fuzzer";

// How often each event was handled, by its transaction ID.
std::map<std::int32_t, int>& handled() {
  static auto* const counts = new std::map<std::int32_t, int>;
  return *counts;
}

OSErr receive(const AppleEventDescriptor& event, AppleEventDescriptor& reply) {
  require(event.descriptorType() == clientcomm::typeAppleEvent, "what is handed on is an event");
  const auto* const address = event.attributeDescriptorForKeyword(clientcomm::keyAddressAttr);
  require(address != nullptr && address->descriptorType() == clientcomm::typeProcessSerialNumber &&
              address->data().size() == 8,
          "an event has the address of its sender");
  ++handled()[event.transactionID()];
  reply.setParamDescriptor(AppleEventDescriptor::descriptorWithString("answer"),
                           clientcomm::keyDirectObject);
  return clientcomm::noErr;
}

// Descriptors cost a sender time; handing over too many makes the kernel refuse the packet.
constexpr std::size_t kMostDescriptors = 2;

struct Peer {
  ScopedFd socket;
  bool hasSpoken = false;
};

class Session {
 public:
  explicit Session(fuzz::Input input) : input_(input) {}

  void run() {
    constexpr int kMostSteps = 64;
    for (int i = 0; i < kMostSteps && !input_.isEmpty(); ++i) step(input_.takeByte());
    // One more that behaves, and everybody goes.
    Peer last;
    const std::int32_t number = sendEvent(last, PacketKind::kEventWantingReply);
    settle();
    Packet answer;
    require(clientcomm::receivePacket(last.socket.get(), answer) == ReceiveResult::kPacket &&
                answer.kind == PacketKind::kReply && answer.status == clientcomm::noErr &&
                answer.descriptor.transactionID() == number,
            "a query is answered");
    for (Peer& peer : peers_) peer = {};
    settle();
    for (const auto& [sent, count] : expected_) {
      require(handled()[sent] == count, "an event is handled once");
    }
  }

 private:
  // Numbers of the fuzzer's own events; those in the input's packets have others, or none.
  static constexpr std::int32_t kFirstNumber = 0x40000000;

  void step(unsigned code) {
    Peer& peer = peers_[code % peers_.size()];
    switch (code >> 4U) {
      case 0:
        connect(peer);
        break;
      case 1:
        sendEvent(peer, PacketKind::kEvent);
        break;
      case 2:
        sendEvent(peer, PacketKind::kEventWantingReply);
        break;
      case 3:
        peer = {};
        break;
      case 4:
        if (peer.socket.isValid()) shutdown(peer.socket.get(), SHUT_WR);
        break;
      case 5:
        g_main_context_iteration(nullptr, FALSE);
        break;
      default:
        sendRubbish(peer, input_.take(input_.takeByte()), code >> 6U);
    }
  }

  static void connect(Peer& peer) {
    peer = {};
    peer.socket.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(kIdentifier));
    require(::connect(peer.socket.get(), path.address(), clientcomm::SocketPath::size()) == 0,
            "the endpoint can be connected to");
  }

  // On a connection of its own, as every sender does.
  std::int32_t sendEvent(Peer& peer, PacketKind kind) {
    if (!peer.socket.isValid() || peer.hasSpoken) connect(peer);
    const std::int32_t number = kFirstNumber + static_cast<std::int32_t>(expected_.size());
    const AppleEventDescriptor event = AppleEventDescriptor::appleEvent(
        clientcomm::kCallEventClass, clientcomm::kCallEventID, {}, -1, number);
    const OSErr status =
        clientcomm::sendPacket(peer.socket.get(), kind, clientcomm::noErr, event, -1);
    peer.hasSpoken = true;
    // A connection that its peer has shut down, or that was dropped, takes nothing.
    if (status == clientcomm::noErr) expected_[number] = 1;
    return number;
  }

  static void sendRubbish(Peer& peer, std::string_view bytes, std::size_t descriptorCount) {
    if (!peer.socket.isValid()) connect(peer);
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int) * kMostDescriptors)> control{};
    const std::array<int, kMostDescriptors> descriptors = {peer.socket.get(), peer.socket.get()};
    if (const std::size_t count = descriptorCount % (kMostDescriptors + 1); count > 0) {
      message.msg_control = control.data();
      message.msg_controllen = CMSG_SPACE(sizeof(int) * count);
      cmsghdr* const header = CMSG_FIRSTHDR(&message);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(sizeof(int) * count);
      std::memcpy(CMSG_DATA(header), descriptors.data(), sizeof(int) * count);
    }
    sendmsg(peer.socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    peer.hasSpoken = true;
  }

  // Lets the endpoint take all that has been sent.
  static void settle() {
    constexpr int kMostTurns = 200;
    int turns = 0;
    while (g_main_context_iteration(nullptr, FALSE) != 0) {
      require(++turns < kMostTurns, "the endpoint comes to rest");
    }
  }

  fuzz::Input input_;
  std::array<Peer, 6> peers_;
  std::map<std::int32_t, int> expected_;
};

int lowestFreeDescriptor() {
  const ScopedFd probe(open("/dev/null", O_RDONLY | O_CLOEXEC));
  return probe.get();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::privateFolder();
  static auto* const endpoint = new clientcomm::SocketEndpoint(kIdentifier, receive);
  require(endpoint->open() == clientcomm::noErr, "the endpoint can be opened");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const int lowestFree = lowestFreeDescriptor();
  handled().clear();
  Session(fuzz::Input(data, size)).run();
  require(lowestFreeDescriptor() == lowestFree, "no descriptor stays open");
  return 0;
}
