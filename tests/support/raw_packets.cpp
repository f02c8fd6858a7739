#include "tests/support/raw_packets.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_format.h"
#include "ClientComm/platform/linux/socket_path.h"

namespace support::raw {
namespace {

using clientcomm::ScopedFd;

std::string littleEndian(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFFU);
  return bytes;
}

}  // namespace

std::string bytesOf(std::uint16_t value) { return littleEndian(value, sizeof value); }
std::string bytesOf(std::uint32_t value) { return littleEndian(value, sizeof value); }

std::string packet(const Header& header) {
  std::string bytes =
      bytesOf(header.magic) + littleEndian(header.version, 1) + littleEndian(header.kind, 1) +
      bytesOf(header.headerSize) + bytesOf(header.bodySize) + bytesOf(header.token) +
      bytesOf(static_cast<std::uint16_t>(header.status)) + bytesOf(header.attachments);
  if (header.headerSize > bytes.size()) bytes.resize(header.headerSize);
  return bytes;
}

std::string packetForFile(std::size_t bodySize, Header header) {
  header.bodySize = static_cast<std::uint32_t>(bodySize);
  header.attachments |= clientcomm::kBodyAttachment;
  return packet(header);
}

std::string packet(Header header, std::string_view body) {
  header.bodySize = static_cast<std::uint32_t>(body.size());
  return packet(header) + std::string(body);
}

std::string descriptor(clientcomm::DescType type, std::string_view payload, std::uint32_t length) {
  return bytesOf(type) + bytesOf(length) + std::string(payload);
}

std::string descriptor(clientcomm::DescType type, std::string_view payload) {
  return descriptor(type, payload, static_cast<std::uint32_t>(payload.size()));
}

std::string text(std::string_view text) { return descriptor(clientcomm::typeUnicodeText, text); }

std::string list(std::uint32_t count, std::string_view items) {
  return descriptor(clientcomm::typeAEList, bytesOf(count) + std::string(items));
}

std::string nestedLists(int depth) {
  std::string nested = descriptor(clientcomm::typeNull, "");
  for (int i = 0; i < depth; ++i) nested = list(1, nested);
  return nested;
}

std::string callList(std::string_view className, std::string_view selector,
                     std::string_view argument) {
  return list(3, text(className) + text(selector) + list(1, text(argument)));
}

std::string event(std::string_view target, clientcomm::AEEventID id,
                  const std::vector<Parameter>& parameters, std::uint32_t count) {
  std::string payload = bytesOf(clientcomm::kCallEventClass) + bytesOf(id) +
                        bytesOf(std::uint16_t{0xFFFF}) + bytesOf(std::uint32_t{0}) +
                        descriptor(clientcomm::typeApplicationBundleID, target) +
                        bytesOf(std::uint32_t{0}) + bytesOf(count);
  for (const Parameter& parameter : parameters) {
    payload += bytesOf(parameter.keyword) + parameter.flattened;
  }
  return descriptor(clientcomm::typeAppleEvent, payload);
}

std::string event(std::string_view target, clientcomm::AEEventID id,
                  const std::vector<Parameter>& parameters) {
  return event(target, id, parameters, static_cast<std::uint32_t>(parameters.size()));
}

ScopedFd connectTo(const std::string& identifier) {
  ScopedFd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(identifier));
  if (connect(fd.get(), path.address(), clientcomm::SocketPath::size()) != 0) fd.reset();
  return fd;
}

std::vector<ScopedFd> fillQueue(const std::string& identifier) {
  const clientcomm::SocketPath path(clientcomm::fileNameForIdentifier(identifier));
  std::vector<ScopedFd> waiting;
  int status = 0;
  while (status == 0) {
    waiting.emplace_back(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    status = connect(waiting.back().get(), path.address(), clientcomm::SocketPath::size());
  }
  EXPECT_EQ(errno, EAGAIN);
  return waiting;
}

bool send(int socket, std::string_view bytes, const std::vector<int>& descriptors) {
  iovec part{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  std::vector<char> control(CMSG_SPACE(sizeof(int) * descriptors.size()));
  if (!descriptors.empty()) {
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int) * descriptors.size());
    std::memcpy(CMSG_DATA(header), descriptors.data(), sizeof(int) * descriptors.size());
  }
  return sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::string receive(int socket) {
  const timeval limit{20, 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  std::string bytes(clientcomm::kMaximumPacketSize, '\0');
  const ssize_t size = recv(socket, bytes.data(), bytes.size(), 0);
  bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return bytes;
}

ScopedFd memoryFile(std::string_view head, std::size_t size, int seals) {
  ScopedFd file(memfd_create("raw packet", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(size)), 0);
  EXPECT_EQ(pwrite(file.get(), head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
  EXPECT_EQ(fcntl(file.get(), F_ADD_SEALS, seals), 0);
  return file;
}

ScopedFd memoryFile(std::string_view head, std::size_t size) {
  return memoryFile(head, size, clientcomm::kBodyFileSeals);
}

}  // namespace support::raw
