#include "ClientComm/platform/linux/endpoint_name.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <tuple>
#include <utility>

#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/endpoint_record.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_format.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

// The name to remove when the process exits, and the process.
const EndpointName* takenName = nullptr;
pid_t takenNameOwner = 0;

// The socket file has the mode of its socket, less the umask.
bool bindAnew(int folder, int socket, const SocketPath& path, const std::string& name) noexcept {
  std::ignore = fchmod(socket, kEndpointMode);  // makePrivate sees to it
  if (bind(socket, path.address(), SocketPath::size()) == 0) return true;
  if (errno != EADDRINUSE) return false;
  discardFile(folder, name.c_str());  // left by an earlier process that had this one's ID
  return bind(socket, path.address(), SocketPath::size()) == 0;
}

bool makePrivate(int folder, const std::string& name, struct stat& status) noexcept {
  if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return (status.st_mode & 07777) == kEndpointMode ||
         fchmodat(folder, name.c_str(), kEndpointMode, 0) == 0;
}

void removeNameAtExit() {
  // A forked child runs this too; it must not unlink its parent's socket.
  if (takenName != nullptr && getpid() == takenNameOwner) takenName->remove();
}

void noteTakenName(const EndpointName* name) {
  [[maybe_unused]] static const int registered = std::atexit(removeNameAtExit);
  takenName = name;
  takenNameOwner = getpid();
}

}  // namespace

EndpointName::EndpointName(const std::string& identifier, WireVersion highestVersion)
    : name_(fileNameForIdentifier(identifier)), highestVersion_(highestVersion) {}

EndpointName::~EndpointName() {
  remove();
  if (takenName == this) takenName = nullptr;
}

OSErr EndpointName::take(ScopedFd& listener, IfTaken ifTaken) {
  isTaken_ = false;
  const ScopedFd folder = openRuntimeFolder(IfMissing::kCreate);
  if (!folder.isValid()) return errAEEventNotPermitted;
  ScopedFd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.isValid()) {
    report(DiagnosticCause::kEndpointNotOpened, runtimeFolderPath(), "socket", errno);
    return memFullErr;
  }
  if (const OSErr status = bindAndListen(folder.get(), socket.get(), ifTaken); status != noErr) {
    return status;
  }
  listener = std::move(socket);
  isTaken_ = true;
  noteTakenName(this);
  return noErr;
}

// The name is taken by renaming a listening socket onto it: a sender finds either the former
// endpoint or this one, never a socket that does not listen yet. The kernel goes on to tell the
// name that the socket was bound to, by which `listeningOf` and `versionOfEndpoint` know it.
OSErr EndpointName::bindAndListen(int folder, int socket, IfTaken ifTaken) {
  const std::string ownName = boundName({name_, getpid(), highestVersion_});
  const SocketPath path(ownName);
  struct stat status {};
  if (!path.isValid() || !bindAnew(folder, socket, path, ownName) ||
      !makePrivate(folder, ownName, status) || ::listen(socket, kEndpointBacklog) != 0 ||
      !putInPlace(folder, ownName, status, ifTaken)) {
    const int error = errno;
    discardFile(folder, ownName.c_str());
    report(error == EEXIST ? DiagnosticCause::kEndpointTaken : DiagnosticCause::kEndpointNotOpened,
           runtimeFolderPath(), "bindAndListen", error);
    return errAEEventNotPermitted;
  }
  device_ = status.st_dev;
  inode_ = status.st_ino;
  return noErr;
}

// Another process may take the name at any moment, so that a look before is not enough to leave it.
bool EndpointName::putInPlace(int folder, const std::string& ownName, const struct stat& status,
                              IfTaken ifTaken) const {
  if (ifTaken == IfTaken::kLeave) {
    if (renameWithoutReplacing(folder, ownName.c_str(), name_.c_str()).isOk()) {
      writeEndpointRecord(folder, name_, status);
      return true;
    }
    if (leadsElsewhere()) {
      errno = EEXIST;
      return false;
    }
  }
  // Before the name leads here, so that the endpoint has its record from the first moment.
  writeEndpointRecord(folder, name_, status);
  return renameat(folder, ownName.c_str(), folder, name_.c_str()) == 0;
}

bool EndpointName::leadsHere() const noexcept {
  struct stat status {};
  const SocketPath path(name_);
  return isTaken_ && path.isValid() && lstat(path.path(), &status) == 0 &&
         status.st_dev == device_ && status.st_ino == inode_;
}

bool EndpointName::leadsElsewhere() const {
  const SocketPath path(name_);
  const ScopedFd probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!path.isValid() || !probe.isValid()) return false;
  return connect(probe.get(), path.address(), SocketPath::size()) == 0 || errno == EAGAIN;
}

void EndpointName::remove() const noexcept {
  if (!leadsHere()) return;
  std::ignore = unlink(SocketPath(name_).path());  // without a listener it is no endpoint
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  if (folder.isValid()) removeEndpointRecord(folder.get(), name_);
}

}  // namespace clientcomm
