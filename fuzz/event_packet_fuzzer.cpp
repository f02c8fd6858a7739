// A packet on a connection, with the descriptors that a peer can hand over with it: received from a
// real socket, then sent on and received again.
//
// The input: options, the length of the body of a memory file (2 bytes), three bytes for the
// descriptors, then the body of the memory file and the bytes of the packet.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/socket_format.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"
#include "fuzz/fuzz.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::Packet;
using clientcomm::PacketKind;
using clientcomm::ReceiveResult;
using clientcomm::ScopedFd;
using fuzz::require;

// Options, bit by bit.
constexpr unsigned kMakeHeader = 1;    // a header with the right magic and version
constexpr unsigned kMakeBodySize = 2;  // ... and with the size of the body behind it
constexpr unsigned kBodyInFile = 4;    // ... or else of the one in the memory file
constexpr unsigned kSendLarge = 8;     // sent on with a parameter that does not fit a packet
constexpr unsigned kSendLong = 16;     // ... or with one that is a piece of the packet of its own

constexpr std::size_t kMostDescriptors = 3;

struct Sockets {
  ScopedFd ours;
  ScopedFd theirs;
};

const Sockets& sockets() {
  static const Sockets* const pair = [] {
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0,
            "a pair of sockets can be made");
    return new Sockets{ScopedFd(ends[0]), ScopedFd(ends[1])};
  }();
  return *pair;
}

// The lowest descriptor that is free; the same before and after unless one was left open.
int lowestFreeDescriptor() {
  const ScopedFd probe(dup(sockets().ours.get()));
  return probe.get();
}

ScopedFd memoryFile(std::string_view body, int seals) {
  ScopedFd file(memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  require(write(file.get(), body.data(), body.size()) == static_cast<ssize_t>(body.size()) &&
              fcntl(file.get(), F_ADD_SEALS, seals) == 0,
          "a memory file can be made");
  return file;
}

ScopedFd descriptorOfKind(unsigned kind, std::string_view body) {
  switch (kind % 10) {
    case 0:
    case 1:
      return memoryFile(body, clientcomm::kBodyFileSeals);
    case 2:
      return memoryFile(body, 0);
    case 3:
      return memoryFile(body, F_SEAL_SHRINK);
    case 4:
      return memoryFile(body, clientcomm::kRequiredSeals);
    case 5: {
      const std::string path = fuzz::privateFolder() + "/file";
      fuzz::writeFile(path, body);
      return ScopedFd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    }
    case 6:
      return ScopedFd(open("/proc/self/exe", O_PATH | O_CLOEXEC));
    case 7:
      return ScopedFd(open(fuzz::privateFolder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    case 8:
      return ScopedFd(open("/dev/null", O_RDONLY | O_CLOEXEC));
    default:
      return ScopedFd(dup(sockets().theirs.get()));
  }
}

void sendRaw(std::string_view bytes, const std::vector<ScopedFd>& descriptors) {
  iovec part{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int) * kMostDescriptors)> control{};
  if (!descriptors.empty()) {
    const std::size_t size = sizeof(int) * descriptors.size();
    message.msg_control = control.data();
    message.msg_controllen = CMSG_SPACE(size);
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(size);
    for (std::size_t i = 0; i < descriptors.size(); ++i) {
      const int fd = descriptors[i].get();
      std::memcpy(CMSG_DATA(header) + i * sizeof fd, &fd, sizeof fd);
    }
  }
  require(
      sendmsg(sockets().theirs.get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
      "a packet can be sent");
}

// The packet as it is to be sent: as it stands, or behind a header that is right in part.
std::string packetBytes(unsigned options, std::string_view rest, std::size_t fileSize) {
  constexpr std::size_t kHeaderSize = clientcomm::kPacketHeaderSize;
  const bool isBodyInFile = (options & kBodyInFile) != 0;
  std::string bytes(rest);
  if ((options & kMakeHeader) == 0) return bytes;
  if (bytes.size() < kHeaderSize) bytes.resize(kHeaderSize);
  clientcomm::PacketHeader header;
  std::memcpy(&header, bytes.data(), kHeaderSize);
  const clientcomm::PacketHeader right;
  header.magic = right.magic;
  header.version = right.version;
  // Extensions, as long as they fit.
  if (header.headerSize < kHeaderSize || header.headerSize > bytes.size()) {
    header.headerSize = right.headerSize;
  }
  if (isBodyInFile) {
    header.headerSize = right.headerSize;
    bytes.resize(kHeaderSize);
    header.attachments |= clientcomm::kBodyAttachment;
  }
  if ((options & (kMakeBodySize | kBodyInFile)) != 0) {
    header.bodySize =
        static_cast<std::uint32_t>(isBodyInFile ? fileSize : bytes.size() - header.headerSize);
  }
  std::memcpy(bytes.data(), &header, kHeaderSize);
  return bytes;
}

std::string flattened(const AppleEventDescriptor& descriptor) {
  std::string bytes(clientcomm::flattenedSize(descriptor).value(), '\0');
  clientcomm::flattenTo(descriptor, bytes.data());
  return bytes;
}

// Sends on what was received: it must arrive as it is.
void sendOn(Packet packet, std::size_t lengthOfMore) {
  // As many parameters as there can be leave no room for one more.
  constexpr std::size_t kMostParameters = 32;
  if (lengthOfMore > 0 && packet.descriptor.parameters().size() < kMostParameters) {
    packet.descriptor.setParamDescriptor(
        AppleEventDescriptor::descriptorWithString(std::string(lengthOfMore, 'x')),
        clientcomm::fourCharCode("more"));
  }
  const bool handsOver = packet.executable.isValid() && packet.kind != PacketKind::kReply;
  require(clientcomm::sendPacket(sockets().theirs.get(), packet.kind, packet.status,
                                 packet.descriptor, handsOver ? packet.executable.get() : -1,
                                 packet.token) == clientcomm::noErr,
          "what was received can be sent on");
  Packet again;
  require(clientcomm::receivePacket(sockets().ours.get(), again) == ReceiveResult::kPacket,
          "what is sent is received");
  require(again.kind == packet.kind && again.status == packet.status && again.token == packet.token,
          "the kind, the status and the token arrive");
  require(again.executable.isValid() == handsOver, "the executable's descriptor arrives");
  if (packet.kind == PacketKind::kReply && packet.status != clientcomm::noErr) return;
  require(flattened(again.descriptor) == flattened(packet.descriptor), "the event arrives");
}

void receive(unsigned options) {
  Packet packet;
  if (clientcomm::receivePacket(sockets().ours.get(), packet) != ReceiveResult::kPacket) return;
  const bool hasBody = packet.kind != PacketKind::kReply || packet.status == clientcomm::noErr;
  require(packet.descriptor.descriptorType() ==
              (hasBody ? clientcomm::typeAppleEvent : clientcomm::typeNull),
          "a packet holds an event, or an error");
  // A peer that has ended is known by the descriptor alone, or by an earlier one.
  clientcomm::serialNumberForPeer(INT_MAX, packet.executable.get(), packet.token);
  std::size_t lengthOfMore = 0;
  if (hasBody && (options & kSendLong) != 0) lengthOfMore = std::size_t{20} << 10;
  if (hasBody && (options & kSendLarge) != 0) lengthOfMore = clientcomm::kMaximumPacketSize;
  sendOn(std::move(packet), lengthOfMore);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::privateFolder();
  sockets();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned options = input.takeByte();
  const std::size_t bodyLength = input.takeByte() + 256U * input.takeByte();
  std::array<std::uint8_t, kMostDescriptors> kinds{};
  for (std::uint8_t& kind : kinds) kind = input.takeByte();
  const std::string_view rest = input.takeRest();
  const std::string_view body = rest.substr(0, bodyLength);
  const int lowestFree = lowestFreeDescriptor();
  {
    std::vector<ScopedFd> descriptors;
    for (std::size_t i = 0; i < options >> 6U; ++i) {
      descriptors.push_back(descriptorOfKind(kinds[i], body));
      require(descriptors.back().isValid(), "a descriptor can be made");
    }
    sendRaw(packetBytes(options, rest.substr(body.size()), body.size()), descriptors);
  }
  receive(options);
  Packet none;
  require(clientcomm::receivePacket(sockets().ours.get(), none) == ReceiveResult::kNothingYet,
          "one packet is taken at a time");
  require(lowestFreeDescriptor() == lowestFree, "no descriptor stays open");
  return 0;
}
