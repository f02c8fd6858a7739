#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/types.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm {

/// The name under which an application is reached: a socket file in the runtime folder. Removed
/// again by the destructor, and when the process exits.
///
/// Where several processes run the same application, the newest has the name; an older one takes it
/// back when the newer is gone.
class EndpointName {
 public:
  /// @param highestVersion that the endpoint serves.
  EndpointName(const std::string& identifier, WireVersion highestVersion);
  ~EndpointName();
  EndpointName(const EndpointName&) = delete;
  EndpointName& operator=(const EndpointName&) = delete;

  /// In the runtime folder.
  const std::string& fileName() const noexcept { return name_; }

  /// What becomes of a process that listens under the name already.
  enum class IfTaken { kReplace, kLeave };

  /// Puts a new listening socket under the name.
  /// @return noErr; errAEEventNotPermitted when the runtime folder is not usable, or the name is
  ///         left to another process; memFullErr when the process is out of descriptors.
  OSErr take(ScopedFd& listener, IfTaken ifTaken);

  /// Whether the name leads to the socket that `take` put there last.
  bool leadsHere() const noexcept;

  /// Whether another process listens under the name.
  bool leadsElsewhere() const;

  /// Removes the name, where it still leads here.
  void remove() const noexcept;

 private:
  OSErr bindAndListen(int folder, int socket, IfTaken ifTaken);
  bool putInPlace(int folder, const std::string& ownName, const struct stat& status,
                  IfTaken ifTaken) const;

  std::string name_;
  WireVersion highestVersion_;
  dev_t device_ = 0;  ///< Of the socket file that `take` put under the name.
  ino_t inode_ = 0;
  bool isTaken_ = false;
};

}  // namespace clientcomm
