#include "platform/linux/event_packet.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/linux/apple_event_wire.h"

namespace platform {
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

/// The pages of a memory file, for as long as they are looked at.
class Mapping {
 public:
  Mapping(int fd, std::size_t size, int protection) noexcept
      : size_(size), address_(mmap(nullptr, size, protection, MAP_SHARED | MAP_POPULATE, fd, 0)) {}
  ~Mapping() {
    if (isValid()) munmap(address_, size_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  bool isValid() const noexcept { return address_ != MAP_FAILED; }
  char* data() const noexcept { return static_cast<char*>(address_); }

 private:
  std::size_t size_;
  void* address_;
};

ScopedFd sealedMemoryFile(const AppleEventDescriptor& descriptor, std::size_t size) {
  ScopedFd file(memfd_create("ClientComm event", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file.isValid() || ftruncate(file.get(), static_cast<off_t>(size)) != 0) return {};
  {
    const Mapping mapping(file.get(), size, PROT_READ | PROT_WRITE);
    if (!mapping.isValid()) return {};
    flattenTo(descriptor, mapping.data());
  }
  if (fcntl(file.get(), F_ADD_SEALS, kSeals) != 0) return {};
  return file;
}

OSErr statusOfSendError(int error) {
  switch (error) {
    case EMSGSIZE:
    case ENOMEM:
    case ENOBUFS:
    case ETOOMANYREFS:
      return memFullErr;
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

OSErr sendBytes(int socket, const char* bytes, std::size_t size, const int* descriptors,
                std::size_t count) {
  iovec part{const_cast<char*>(bytes), size};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  DescriptorMessage control;
  control.attach(message, descriptors, count);
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(size) ? noErr : statusOfSendError(errno);
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

std::optional<AppleEventDescriptor> readMemoryFile(int fd, std::uint64_t size) {
  struct stat status {};
  // Unsealed, it could shrink or change under the reader.
  const int seals = fcntl(fd, F_GET_SEALS);
  if (seals < 0 || (seals & (F_SEAL_SHRINK | F_SEAL_WRITE)) != (F_SEAL_SHRINK | F_SEAL_WRITE)) {
    return std::nullopt;
  }
  if (fstat(fd, &status) != 0 || static_cast<std::uint64_t>(status.st_size) != size) {
    return std::nullopt;
  }
  const Mapping mapping(fd, size, PROT_READ);
  if (!mapping.isValid()) return std::nullopt;
  return unflatten({mapping.data(), size});
}

ReceiveResult decode(const char* bytes, std::size_t size, ReceivedDescriptors& descriptors,
                     Packet& packet) {
  Header header{};
  if (size < sizeof header) return ReceiveResult::kMalformed;
  std::memcpy(&header, bytes, sizeof header);
  if (header.magic != kMagic || header.version != kVersion || header.kind < 1 || header.kind > 3 ||
      header.bodySize > kMaximumFlattenedSize) {
    return ReceiveResult::kMalformed;
  }
  packet.kind = static_cast<PacketKind>(header.kind);
  packet.status = header.status;
  packet.token = header.token;
  // The sender's executable goes first, where it was handed over; the body's file last.
  const bool isBodyInFile = size == sizeof header && header.bodySize != 0;
  const std::size_t filesOfBody = isBodyInFile ? 1 : 0;
  if (packet.kind != PacketKind::kReply && descriptors.count > filesOfBody) {
    packet.executable = std::move(descriptors.all.front());
  }
  if (packet.kind == PacketKind::kReply && packet.status != noErr) return ReceiveResult::kPacket;
  std::optional<AppleEventDescriptor> body;
  if (isBodyInFile && descriptors.count > 0) {
    body = readMemoryFile(descriptors.all[descriptors.count - 1].get(), header.bodySize);
  } else if (header.bodySize == size - sizeof header) {
    body = unflatten({bytes + sizeof header, size - sizeof header});
  }
  if (!body || body->descriptorType() != typeAppleEvent) return ReceiveResult::kMalformed;
  packet.descriptor = std::move(*body);
  return ReceiveResult::kPacket;
}

}  // namespace

OSErr sendPacket(int socket, PacketKind kind, OSErr status, const AppleEventDescriptor& descriptor,
                 int executable, std::uint32_t token) {
  const bool hasBody = kind != PacketKind::kReply || status == noErr;
  const std::size_t bodySize = hasBody ? flattenedSize(descriptor) : 0;
  if (bodySize > kMaximumFlattenedSize) return memFullErr;
  const Header header{kMagic,
                      kVersion,
                      static_cast<std::uint8_t>(kind),
                      status,
                      static_cast<std::uint32_t>(bodySize),
                      token};
  std::array<int, kMaximumDescriptorsPerPacket> descriptors{};
  std::size_t count = 0;
  if (executable >= 0) descriptors[count++] = executable;

  if (sizeof header + bodySize > kMaximumPacketSize) {
    const ScopedFd body = sealedMemoryFile(descriptor, bodySize);
    if (!body.isValid()) return memFullErr;
    descriptors[count++] = body.get();
    return sendBytes(socket, reinterpret_cast<const char*>(&header), sizeof header,
                     descriptors.data(), count);
  }
  constexpr std::size_t kUsualSize = 1024;
  std::array<char, kUsualSize> usual;
  std::unique_ptr<char[]> large;
  char* packet = usual.data();
  if (sizeof header + bodySize > usual.size()) {
    large = std::make_unique_for_overwrite<char[]>(sizeof header + bodySize);
    packet = large.get();
  }
  std::memcpy(packet, &header, sizeof header);
  if (hasBody) flattenTo(descriptor, packet + sizeof header);
  return sendBytes(socket, packet, sizeof header + bodySize, descriptors.data(), count);
}

ReceiveResult receivePacket(int socket, Packet& packet) {
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
  return decode(buffer->data(), static_cast<std::size_t>(size), descriptors, packet);
}

}  // namespace platform
