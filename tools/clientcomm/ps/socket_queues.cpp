#include "tools/clientcomm/ps/socket_queues.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm::tool {
namespace {

using Sockets = std::multimap<std::string, ListeningSocket>;

struct Request {
  nlmsghdr header{};
  unix_diag_req body{};
};

bool sendRequest(int socket) {
  Request request;
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.body.sdiag_family = AF_UNIX;
  request.body.udiag_states = 1U << TCP_LISTEN;
  request.body.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_VFS | UDIAG_SHOW_RQLEN;
  return send(socket, &request, sizeof request, 0) == static_cast<ssize_t>(sizeof request);
}

// The last part of a bound name, whose terminator the kernel counts or not.
std::string lastPart(std::string_view name) {
  name = name.substr(0, name.find('\0'));
  return splitPath(name).name;
}

// Attributes are aligned to 4 bytes, and read by copies: the buffer holds bytes.
void addSocket(const char* attributes, std::size_t size, Sockets& sockets) {
  std::string name;
  ListeningSocket found;
  while (size >= sizeof(rtattr)) {
    rtattr attribute{};
    std::memcpy(&attribute, attributes, sizeof attribute);
    if (attribute.rta_len < sizeof attribute || attribute.rta_len > size) break;
    const char* const data = attributes + RTA_LENGTH(0);
    const std::size_t length = attribute.rta_len - RTA_LENGTH(0);
    if (attribute.rta_type == UNIX_DIAG_NAME) name = lastPart({data, length});
    if (attribute.rta_type == UNIX_DIAG_VFS && length >= sizeof(unix_diag_vfs)) {
      std::memcpy(&found.inode, data + offsetof(unix_diag_vfs, udiag_vfs_ino), sizeof found.inode);
    }
    if (attribute.rta_type == UNIX_DIAG_RQLEN && length >= sizeof(unix_diag_rqlen)) {
      std::memcpy(&found.waiting, data + offsetof(unix_diag_rqlen, udiag_rqueue),
                  sizeof found.waiting);
    }
    const std::size_t step = RTA_ALIGN(attribute.rta_len);
    if (step >= size) break;
    attributes += step;
    size -= step;
  }
  if (!name.empty()) sockets.emplace(std::move(name), found);
}

// @return whether more is to come.
bool addSockets(const char* bytes, std::size_t size, Sockets& sockets) {
  while (size >= sizeof(nlmsghdr)) {
    nlmsghdr header{};
    std::memcpy(&header, bytes, sizeof header);
    if (header.nlmsg_len < sizeof header || header.nlmsg_len > size) return false;
    if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) return false;
    constexpr std::size_t kBefore = NLMSG_LENGTH(sizeof(unix_diag_msg));
    if (header.nlmsg_len >= kBefore) {
      addSocket(bytes + kBefore, header.nlmsg_len - kBefore, sockets);
    }
    const std::size_t step = NLMSG_ALIGN(header.nlmsg_len);
    if (step >= size) break;
    bytes += step;
    size -= step;
  }
  return true;
}

}  // namespace

std::multimap<std::string, ListeningSocket> listeningSockets() {
  Sockets sockets;
  const ScopedFd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!socket.isValid() || !sendRequest(socket.get())) return sockets;
  const timeval limit{2, 0};  // the kernel answers at once
  setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  std::vector<char> buffer(std::size_t{64} << 10);
  for (bool isMore = true; isMore;) {
    const ssize_t size = recv(socket.get(), buffer.data(), buffer.size(), 0);
    isMore = size > 0 && addSockets(buffer.data(), static_cast<std::size_t>(size), sockets);
  }
  return sockets;
}

}  // namespace clientcomm::tool
