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

#include "ClientComm/platform/linux/socket_format.h"
#include "ClientComm/platform/posix/apple_event_codec.h"

namespace clientcomm {
namespace {

static_assert(std::endian::native == std::endian::little,
              "a big-endian port has to swap the header's fields");

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
      fcntl(file.get(), F_ADD_SEALS, kBodyFileSeals) != 0) {
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
    case EAGAIN:
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
OSErr sendWithFile(int socket, PacketHeader header, std::span<iovec> body, int executable) {
  const ScopedFd file = sealedMemoryFile(body);
  if (!file.isValid()) return memFullErr;
  header.attachments |= kBodyAttachment;
  const std::array<int, kMaximumDescriptorsPerPacket> descriptors{file.get(), executable};
  iovec piece{&header, sizeof header};
  const std::span<const int> all(descriptors);
  const int error = sendPieces(socket, {&piece, 1}, executable >= 0 ? all : all.first(1));
  return error == 0 ? noErr : statusOfSendError(error);
}

/// Owns the descriptors that came with a packet, whatever becomes of it.
struct ReceivedDescriptors {
  std::array<ScopedFd, kMaximumDescriptorsPerPacket> all;
  std::size_t count = 0;
  std::size_t next = 0;

  /// Hands out the next one; invalid where fewer have arrived than the packet says.
  ScopedFd take() { return next < count ? std::move(all[next++]) : ScopedFd(); }

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
  const int seals = fcntl(fd, F_GET_SEALS);
  if (seals < 0 || (seals & kRequiredSeals) != kRequiredSeals) return std::nullopt;
  if (fstat(fd, &status) != 0 || static_cast<std::uint64_t>(status.st_size) != size) {
    return std::nullopt;
  }
  const Mapping mapping(fd, size);
  if (!mapping.isValid()) return std::nullopt;
  return unflatten({mapping.data(), size});
}

// The header of a packet, without extensions.
ReceiveResult readHeader(std::string_view bytes, WireVersion highest, PacketHeader& header) {
  std::memcpy(&header, bytes.data(), std::min(bytes.size(), sizeof header));
  if (bytes.size() < kPacketPrefixSize || header.magic != kPacketMagic) {
    return ReceiveResult::kMalformed;
  }
  if (header.version < kLowestWireVersion || header.version > highest) {
    return ReceiveResult::kUnknownVersion;
  }
  const bool isKnownKind = header.kind >= 1 && header.kind <= 4;
  const bool isWhole = header.headerSize >= sizeof header && header.headerSize <= bytes.size();
  return isKnownKind && isWhole && header.bodySize <= kMaximumFlattenedSize
             ? ReceiveResult::kPacket
             : ReceiveResult::kMalformed;
}

ReceiveResult readEnvelope(std::string_view bytes, WireVersion highest,
                           ReceivedDescriptors& descriptors, Envelope& envelope) {
  PacketHeader header;
  const ReceiveResult result = readHeader(bytes, highest, header);
  envelope.kind = static_cast<PacketKind>(header.kind);
  if (result != ReceiveResult::kPacket) return result;
  envelope.version = header.version;
  envelope.status = header.status;
  envelope.token = header.token;
  envelope.bodySize = header.bodySize;
  envelope.shortBody = bytes.substr(header.headerSize);
  const bool isBodyInFile = (header.attachments & kBodyAttachment) != 0;
  if (isBodyInFile) envelope.longBody = descriptors.take();
  if ((header.attachments & kExecutableAttachment) != 0) envelope.executable = descriptors.take();
  if (envelope.kind == PacketKind::kReply && envelope.status != noErr) {
    return ReceiveResult::kPacket;
  }
  const bool isWhole = isBodyInFile ? envelope.longBody.isValid() && envelope.shortBody.empty() &&
                                          header.bodySize > 0
                                    : envelope.shortBody.size() == header.bodySize;
  return isWhole ? ReceiveResult::kPacket : ReceiveResult::kMalformed;
}

ReceiveResult receiveNext(int socket, WireVersion highest, Envelope& envelope) {
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
  return readEnvelope({buffer->data(), static_cast<std::size_t>(size)}, highest, descriptors,
                      envelope);
}

}  // namespace

OSErr sendPacket(int socket, PacketKind kind, OSErr status, const AppleEventDescriptor& descriptor,
                 int executable, std::uint32_t token, WireVersion version) {
  const bool hasBody = kind != PacketKind::kReply || status == noErr;
  if (hasBody && descriptor.descriptorType() != typeAppleEvent) return paramErr;
  const auto bodySize = hasBody ? flattenedSize(descriptor) : std::size_t{0};
  if (!bodySize) return memFullErr;
  return sendPacketOfSize(*bodySize, socket, {kind, version, status, executable, token},
                          descriptor);
}

OSErr sendPacketOfSize(std::size_t bodySize, int socket, const PacketFields& fields,
                       const AppleEventDescriptor& descriptor) {
  const int executable = fields.executable;
  PacketHeader header;
  header.version = fields.version;
  header.kind = static_cast<std::uint8_t>(fields.kind);
  header.bodySize = static_cast<std::uint32_t>(bodySize);
  header.token = fields.token;
  header.status = fields.status;
  header.attachments = executable >= 0 ? kExecutableAttachment : std::uint16_t{0};
  const std::span<const int> descriptors(&executable, executable >= 0 ? 1 : 0);
  if (bodySize == 0) {
    iovec piece{&header, sizeof header};
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

ReceiveResult receiveEnvelope(int socket, Envelope& envelope, WireVersion highest) {
  // The kernel looks for a packet first and for the end of the connection then. Of a peer that
  // sends and closes between the two it reports the end, and still has the packet: an end counts
  // only when it is reported again.
  ReceiveResult result = receiveNext(socket, highest, envelope);
  if (result == ReceiveResult::kClosed) result = receiveNext(socket, highest, envelope);
  return result;
}

std::optional<AppleEventDescriptor> decodeBody(const Envelope& envelope) {
  auto body = envelope.longBody.isValid()
                  ? readMemoryFile(envelope.longBody.get(), envelope.bodySize)
                  : unflatten(envelope.shortBody);
  if (!body || body->descriptorType() != typeAppleEvent) return std::nullopt;
  return body;
}

ReceiveResult receivePacket(int socket, Packet& packet, WireVersion highest) {
  Envelope envelope;
  const ReceiveResult result = receiveEnvelope(socket, envelope, highest);
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
