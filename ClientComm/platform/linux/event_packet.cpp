#include "ClientComm/platform/linux/event_packet.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>
#include <span>

#include "ClientComm/platform/portable/event_limits.h"
#include "ClientComm/platform/posix/apple_event_codec.h"

namespace clientcomm {
namespace {

static_assert(std::endian::native == std::endian::little,
              "a big-endian port has to swap the header's fields");

constexpr std::uint32_t kMagic = fourCharCode("TQHP");
constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kMaximumDescriptorsPerPacket = 2;
constexpr int kSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

struct Header {
  std::uint32_t magic;
  std::uint8_t version;
  std::uint8_t kind;
  std::int16_t status;
  std::uint32_t bodySize;  ///< 0 for a reply with an error status.
  std::uint32_t token;
};
static_assert(sizeof(Header) == 16);

void skip(iovec& piece, std::size_t size) {
  piece.iov_base = static_cast<char*>(piece.iov_base) + size;
  piece.iov_len -= size;
}

/// The pages of a memory file, for as long as they are looked at.
class Mapping {
 public:
  Mapping(int fd, std::size_t size) noexcept
      : size_(size), address_(mmap(nullptr, size, PROT_READ, MAP_SHARED | MAP_POPULATE, fd, 0)) {}
  ~Mapping() {
    if (isValid()) munmap(address_, size_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  bool isValid() const noexcept { return address_ != MAP_FAILED; }
  const char* data() const noexcept { return static_cast<const char*>(address_); }

 private:
  std::size_t size_;
  void* address_;
};

// Writing takes half as long as filling the pages of a mapping, which are cleared first.
bool writeAll(int file, std::span<iovec> pieces) {
  while (!pieces.empty()) {
    const auto count = std::min<std::size_t>(pieces.size(), IOV_MAX);
    const ssize_t result = writev(file, pieces.data(), static_cast<int>(count));
    if (result < 0 && errno == EINTR) continue;
    if (result <= 0) return false;
    auto written = static_cast<std::size_t>(result);
    while (!pieces.empty() && written >= pieces.front().iov_len) {
      written -= pieces.front().iov_len;
      pieces = pieces.subspan(1);
    }
    if (!pieces.empty()) skip(pieces.front(), written);
  }
  return true;
}

ScopedFd sealedMemoryFile(std::span<iovec> pieces) {
  ScopedFd file(memfd_create("ClientComm event", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file.isValid() || !writeAll(file.get(), pieces) ||
      fcntl(file.get(), F_ADD_SEALS, kSeals) != 0) {
    return {};
  }
  return file;
}

OSErr statusOfSendError(int error) {
  switch (error) {
    case EMSGSIZE:
    case ENOMEM:
    case ENOBUFS:
      return memFullErr;
    case ETOOMANYREFS:
      return errAETimeout;
    default:
      return connectionInvalid;
  }
}

/// The control message that carries up to two descriptors.
struct alignas(cmsghdr) DescriptorMessage {
  std::array<char, CMSG_SPACE(sizeof(int) * kMaximumDescriptorsPerPacket)> bytes{};

  void attach(msghdr& message, const int* descriptors, std::size_t count) {
    if (count == 0) return;
    message.msg_control = bytes.data();
    message.msg_controllen = CMSG_SPACE(sizeof(int) * count);
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int) * count);
    std::memcpy(CMSG_DATA(header), descriptors, sizeof(int) * count);
  }
};

/// @return 0 or an errno value.
int sendPieces(int socket, std::span<iovec> pieces, std::span<const int> descriptors) {
  msghdr message{};
  message.msg_iov = pieces.data();
  message.msg_iovlen = pieces.size();
  DescriptorMessage control;
  control.attach(message, descriptors.data(), descriptors.size());
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  return sent < 0 ? errno : 0;  // a packet goes as a whole or not at all
}

/// Sends the header with the body in a memory file.
OSErr sendWithFile(int socket, Header header, std::span<iovec> body, int executable) {
  const ScopedFd file = sealedMemoryFile(body);
  if (!file.isValid()) return memFullErr;
  const std::array<int, kMaximumDescriptorsPerPacket> descriptors{executable, file.get()};
  iovec piece{&header, sizeof header};
  const std::span<const int> all(descriptors);
  const int error = sendPieces(socket, {&piece, 1}, executable >= 0 ? all : all.subspan(1));
  return error == 0 ? noErr : statusOfSendError(error);
}

/// Owns the descriptors that came with a packet, whatever becomes of it.
struct ReceivedDescriptors {
  std::array<ScopedFd, kMaximumDescriptorsPerPacket> all;
  std::size_t count = 0;

  void takeFrom(msghdr& message) {
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
      if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
      const std::size_t size = header->cmsg_len - CMSG_LEN(0);
      for (std::size_t offset = 0; offset + sizeof(int) <= size; offset += sizeof(int)) {
        int fd = -1;
        std::memcpy(&fd, CMSG_DATA(header) + offset, sizeof fd);
        ScopedFd owned(fd);
        if (count < all.size()) all[count++] = std::move(owned);
      }
    }
  }
};

std::optional<AppleEventDescriptor> readMemoryFile(int fd, std::size_t size) {
  struct stat status {};
  // Unsealed, it could shrink or change under the reader.
  const int seals = fcntl(fd, F_GET_SEALS);
  if (seals < 0 || (seals & (F_SEAL_SHRINK | F_SEAL_WRITE)) != (F_SEAL_SHRINK | F_SEAL_WRITE)) {
    return std::nullopt;
  }
  if (fstat(fd, &status) != 0 || static_cast<std::uint64_t>(status.st_size) != size) {
    return std::nullopt;
  }
  const Mapping mapping(fd, size);
  if (!mapping.isValid()) return std::nullopt;
  return unflatten({mapping.data(), size});
}

ReceiveResult readEnvelope(std::string_view bytes, ReceivedDescriptors& descriptors,
                           Envelope& envelope) {
  Header header{};
  if (bytes.size() < sizeof header) return ReceiveResult::kMalformed;
  std::memcpy(&header, bytes.data(), sizeof header);
  if (header.magic != kMagic || header.version != kVersion || header.kind < 1 || header.kind > 3 ||
      header.bodySize > kMaximumFlattenedSize) {
    return ReceiveResult::kMalformed;
  }
  envelope.kind = static_cast<PacketKind>(header.kind);
  envelope.status = header.status;
  envelope.token = header.token;
  envelope.bodySize = header.bodySize;
  envelope.shortBody = bytes.substr(sizeof header);
  // The sender's executable goes first, where it was handed over; the body's file last.
  const bool isBodyInFile = envelope.shortBody.empty() && header.bodySize != 0;
  const std::size_t filesOfBody = isBodyInFile ? 1 : 0;
  if (isBodyInFile && descriptors.count > 0) {
    envelope.longBody = std::move(descriptors.all[descriptors.count - 1]);
  }
  if (envelope.kind != PacketKind::kReply && descriptors.count > filesOfBody) {
    envelope.executable = std::move(descriptors.all.front());
  }
  if (envelope.kind == PacketKind::kReply && envelope.status != noErr) {
    return ReceiveResult::kPacket;
  }
  const bool isWhole = envelope.longBody.isValid() || header.bodySize == envelope.shortBody.size();
  return isWhole ? ReceiveResult::kPacket : ReceiveResult::kMalformed;
}

ReceiveResult receiveNext(int socket, Envelope& envelope) {
  // One buffer for the process: packets are taken one at a time, and it is large for a stack.
  static auto* const buffer = new std::array<char, kMaximumPacketSize>;
  DescriptorMessage control;
  iovec part{buffer->data(), buffer->size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.bytes.data();
  message.msg_controllen = control.bytes.size();
  ssize_t size = 0;
  do {
    size = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  } while (size < 0 && errno == EINTR);
  if (size < 0) {
    return errno == EAGAIN || errno == EWOULDBLOCK ? ReceiveResult::kNothingYet
                                                   : ReceiveResult::kClosed;
  }
  ReceivedDescriptors descriptors;
  descriptors.takeFrom(message);
  if (size == 0) return ReceiveResult::kClosed;
  if ((message.msg_flags & MSG_TRUNC) != 0) return ReceiveResult::kMalformed;
  return readEnvelope({buffer->data(), static_cast<std::size_t>(size)}, descriptors, envelope);
}

}  // namespace

OSErr sendPacket(int socket, PacketKind kind, OSErr status, const AppleEventDescriptor& descriptor,
                 int executable, std::uint32_t token) {
  const bool hasBody = kind != PacketKind::kReply || status == noErr;
  if (hasBody && descriptor.descriptorType() != typeAppleEvent) return paramErr;
  const auto bodySize = hasBody ? flattenedSize(descriptor) : std::size_t{0};
  if (!bodySize) return memFullErr;
  return sendPacketOfSize(*bodySize, socket, kind, status, descriptor, executable, token);
}

OSErr sendPacketOfSize(std::size_t bodySize, int socket, PacketKind kind, OSErr status,
                       const AppleEventDescriptor& descriptor, int executable,
                       std::uint32_t token) {
  const Header header{kMagic,
                      kVersion,
                      static_cast<std::uint8_t>(kind),
                      status,
                      static_cast<std::uint32_t>(bodySize),
                      token};
  const std::span<const int> descriptors(&executable, executable >= 0 ? 1 : 0);
  if (bodySize == 0) {
    iovec piece{const_cast<Header*>(&header), sizeof header};
    const int error = sendPieces(socket, {&piece, 1}, descriptors);
    return error == 0 ? noErr : statusOfSendError(error);
  }
  FlattenedPieces body(descriptor, bodySize, sizeof header);
  std::memcpy(body.pieces().front().iov_base, &header, sizeof header);
  if (sizeof header + bodySize <= kMaximumPacketSize) {
    const int error = sendPieces(socket, body.pieces(), descriptors);
    if (error == 0) return noErr;
    if (error != EMSGSIZE) return statusOfSendError(error);
  }
  skip(body.pieces().front(), sizeof header);
  return sendWithFile(socket, header, body.pieces(), executable);
}

ReceiveResult receiveEnvelope(int socket, Envelope& envelope) {
  // The kernel looks for a packet first and for the end of the connection then. Of a peer that
  // sends and closes between the two it reports the end, and still has the packet: an end counts
  // only when it is reported again.
  ReceiveResult result = receiveNext(socket, envelope);
  if (result == ReceiveResult::kClosed) result = receiveNext(socket, envelope);
  return result;
}

std::optional<AppleEventDescriptor> decodeBody(const Envelope& envelope) {
  auto body = envelope.longBody.isValid()
                  ? readMemoryFile(envelope.longBody.get(), envelope.bodySize)
                  : unflatten(envelope.shortBody);
  if (!body || body->descriptorType() != typeAppleEvent) return std::nullopt;
  return body;
}

ReceiveResult receivePacket(int socket, Packet& packet) {
  Envelope envelope;
  const ReceiveResult result = receiveEnvelope(socket, envelope);
  if (result != ReceiveResult::kPacket) return result;
  packet.kind = envelope.kind;
  packet.status = envelope.status;
  packet.executable = std::move(envelope.executable);
  packet.token = envelope.token;
  if (packet.kind == PacketKind::kReply && packet.status != noErr) return result;
  auto body = decodeBody(envelope);
  if (!body) return ReceiveResult::kMalformed;
  packet.descriptor = std::move(*body);
  return result;
}

}  // namespace clientcomm
