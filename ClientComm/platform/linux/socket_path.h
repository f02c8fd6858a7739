#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

/// Where the socket file `name` of the runtime folder is bound and connected to, however long the
/// folder's path is: one that does not fit a socket address is gone through by an open descriptor.
class SocketPath {
 public:
  explicit SocketPath(const std::string& name);

  /// False, with errno set, when the folder had to be opened and could not be.
  bool isValid() const noexcept { return isValid_; }
  /// The path, for calls other than bind and connect; holds while this object lives.
  const char* path() const noexcept { return address_.sun_path; }
  const sockaddr* address() const noexcept { return reinterpret_cast<const sockaddr*>(&address_); }
  static constexpr socklen_t size() noexcept { return sizeof(sockaddr_un); }

 private:
  ScopedFd folder_;
  sockaddr_un address_{};
  bool isValid_ = true;
};

}  // namespace clientcomm
