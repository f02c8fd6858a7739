#pragma once

#include <sys/types.h>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

/// The process at the other end of a connected Unix socket. Where the kernel hands out a pidfd of
/// it (Linux 6.5), a later process with the same ID is never taken for it; elsewhere the ID is all
/// there is.
class PeerProcess {
 public:
  /// @param pid its ID by the credentials of `socket`; 0 when it is in a process-ID namespace that
  ///        this process does not see.
  /// @param socket the connection, or -1 to go by the ID alone.
  PeerProcess(pid_t pid, int socket) noexcept;

  /// Its ID under /proc; 0 when /proc does not show it. The two differ where /proc belongs to
  /// another process-ID namespace than this process.
  pid_t idInProc() const noexcept;

  /// Whether it is known to have exited. What was read under `idInProc` before is about this
  /// process when the answer is false.
  bool hasExited() const noexcept;

 private:
  pid_t pid_;
  ScopedFd pidfd_;
  bool isReaped_ = false;
};

}  // namespace clientcomm
