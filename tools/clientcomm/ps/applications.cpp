#include "tools/clientcomm/ps/applications.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <tuple>
#include <utility>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/endpoint_record.h"
#include "ClientComm/platform/linux/event_delivery.h"
#include "ClientComm/platform/linux/peer_process.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/record_file.h"
#include "ClientComm/platform/linux/running_application.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "tools/clientcomm/ps/socket_queues.h"

namespace clientcomm::tool {
namespace {

using std::chrono::duration_cast;
using std::chrono::seconds;
using Sockets = std::multimap<std::string, ListeningSocket>;

bool isEndpointName(const std::string& name) {
  return name.size() == kFileNameLength &&
         name.find_first_not_of(kFileNameDigits) == std::string::npos;
}

/// Who listens on a socket file.
struct Listener {
  Connection connection;
  pid_t boundBy = 0;  ///< Its process ID as it sees it itself.
  std::optional<WireVersion> wireVersion;
  std::optional<std::uint32_t> waiting;
};

// A socket with a full queue takes no connection, and is told by its bound name alone.
bool connectTo(const std::string& name, Listener& listener) {
  const SocketPath path(name);
  ScopedFd& socket = listener.connection.socket;
  socket.reset(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!path.isValid() || !socket.isValid()) return false;
  if (connect(socket.get(), path.address(), SocketPath::size()) != 0) return errno == EAGAIN;
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  listener.connection.peer = peer.pid;
  return peer.uid == geteuid() && listener.connection.peerExists();
}

std::string boundNameOf(int socket) {
  sockaddr_un address{};
  socklen_t size = sizeof address - 1;
  if (getpeername(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return {};
  const std::string_view path(address.sun_path);
  return std::string(path.substr(path.rfind('/') + 1));
}

// The socket behind the file; several may have been bound to the same name, one after the other.
void takeQueue(const Sockets& sockets, const std::string& name, const struct stat& file,
               Listener& listener) {
  for (const auto& [bound, socket] : sockets) {
    const auto parts = partsOfBoundName(bound);
    if (!parts || parts->fileName != name) continue;
    if (socket.inode != static_cast<std::uint32_t>(file.st_ino)) continue;
    listener.waiting = socket.waiting;
    listener.boundBy = parts->pid;
    listener.wireVersion = parts->version;
  }
}

std::optional<Listener> listenerOf(int folder, const std::string& name, const Sockets& sockets) {
  struct stat file = {};
  Listener listener;
  if (fstatat(folder, name.c_str(), &file, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISSOCK(file.st_mode) ||
      !connectTo(name, listener)) {
    return std::nullopt;
  }
  takeQueue(sockets, name, file, listener);
  const std::string bound = boundNameOf(listener.connection.socket.get());
  if (const auto parts = partsOfBoundName(bound)) {
    listener.boundBy = parts->pid;
    listener.wireVersion = parts->version;
  }
  return listener;
}

/// What the process has written of itself; nothing for another one of its ID.
std::optional<PropertyListDictionary> ownRecord(int folder, const std::string& name, pid_t pid) {
  for (const std::string& file :
       contentsOfDirectoryAtPath(ProcPath::ofDescriptor(folder).c_str())) {
    const RuntimeFileName parts = parseRuntimeFileName(file);
    if (parts.kind != RuntimeFileKind::kProcessRecord || parts.pid != pid) continue;
    auto content = readRecordFile(folder, file);
    const auto record = content ? processRecordIn(*content) : std::nullopt;
    if (!record || !record->isOpen) continue;
    if (fileNameForIdentifier(record->bundleIdentifier) == name) return content;
  }
  return std::nullopt;
}

void takeRecord(const PropertyListDictionary& content, Application& application) {
  const auto record = processRecordIn(content);
  application.identifier = record->bundleIdentifier;
  application.bundlePath = record->bundlePath;
  application.libraryVersion = stringFor(content, kLibraryVersionKey);
  application.age = duration_cast<seconds>(ageByStartTime(record->startTime));
}

// Without a record: by the process, or by the record of its endpoint where it is not seen.
void takeProcess(int folder, const Listener& listener, Application& application) {
  const pid_t id =
      PeerProcess(listener.connection.peer, listener.connection.socket.get()).idInProc();
  if (const auto process = id > 0 ? bundleProcess(id) : std::nullopt) {
    application.identifier = process->identity.identifier;
    application.bundlePath = process->identity.path;
    application.age = duration_cast<seconds>(ageByStartTime(process->startTime));
    return;
  }
  std::string bytes;
  if (!readRuntimeFile(folder, endpointRecordName(application.endpoint), bytes).isOk()) return;
  const auto record = endpointRecordFromBytes(bytes);
  if (!record) return;
  application.bundlePath = record->bundlePath;
  application.identifier = Bundle(record->bundlePath).bundleIdentifier();
}

Application applicationOf(int folder, const std::string& name, const Listener& listener) {
  Application application;
  application.endpoint = name;
  application.process = listener.connection.peer;
  application.wireVersion = listener.wireVersion;
  application.waitingCalls = listener.waiting;
  if (const auto record = ownRecord(folder, name, listener.boundBy)) {
    takeRecord(*record, application);
  } else {
    takeProcess(folder, listener, application);
  }
  if (application.bundlePath) {
    application.bundleVersion = Bundle(*application.bundlePath).infoString("CFBundleVersion");
  }
  return application;
}

}  // namespace

std::vector<Application> applications() {
  std::vector<Application> all;
  // Before the connections below, which wait in the queues too.
  const Sockets sockets = listeningSockets();
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  if (!folder.isValid()) return all;
  for (const std::string& name :
       contentsOfDirectoryAtPath(ProcPath::ofDescriptor(folder.get()).c_str())) {
    if (!isEndpointName(name)) continue;
    const auto listener = listenerOf(folder.get(), name, sockets);
    if (listener) all.push_back(applicationOf(folder.get(), name, *listener));
  }
  std::sort(all.begin(), all.end(), [](const Application& one, const Application& other) {
    return std::tie(one.identifier, one.endpoint) < std::tie(other.identifier, other.endpoint);
  });
  return all;
}

}  // namespace clientcomm::tool
