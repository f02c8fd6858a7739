#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace clientcomm::tool {

/// A listening socket, by the name that it was bound to.
struct ListeningSocket {
  std::uint32_t inode = 0;    ///< The lower half of the inode of its file.
  std::uint32_t waiting = 0;  ///< Connections that have not been accepted.
};

/// The listening Unix sockets of this network namespace, by the last part of their bound names.
/// Empty where the kernel does not tell (CONFIG_UNIX_DIAG).
std::multimap<std::string, ListeningSocket> listeningSockets();

}  // namespace clientcomm::tool
