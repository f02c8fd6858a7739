#pragma once

#include <poll.h>

#include <cstdint>
#include <span>
#include <vector>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

/// A descriptor that is readable while one of a set of descriptors is ready, or once a time has
/// passed.
class PollSet {
 public:
  /// @return false when the process is out of descriptors.
  bool open();

  int descriptor() const noexcept { return outer_.get(); }

  /// Whether something is ready, or the time has passed.
  bool isReady();

  /// Watches exactly these descriptors from now on; those without an event are left out. It must be
  /// called after a descriptor was closed, before others are waited for.
  /// @param timeout in milliseconds; -1 for none.
  void watch(std::span<const pollfd> entries, int timeout);

 private:
  struct Watched {
    int fd;
    std::uint64_t serial;  ///< Of this registration, since a descriptor's number is reused.
  };

  bool openInner();
  void rebuild();
  bool isCurrent(std::uint64_t serial) const;
  bool add(const pollfd& entry, std::vector<Watched>& watched);
  void setTimer(int timeout) const;

  ScopedFd outer_;  ///< Watches `inner_` only.
  ScopedFd inner_;
  ScopedFd timer_;
  std::vector<Watched> watched_;
  std::uint64_t lastSerial_ = 0;
};

}  // namespace clientcomm
