#include "ClientComm/platform/linux/endpoint_record.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/endpoint_record_format.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/record_file.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/bundle_files.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/property_list.h"

namespace clientcomm {
namespace {

// The process that listens on the socket file; 0 when it cannot be seen from here, or its queue is
// full; nothing when no process of this user listens.
std::optional<pid_t> listenerOf(const std::string& socketName) {
  const SocketPath path(socketName);
  const ScopedFd probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!path.isValid() || !probe.isValid()) return std::nullopt;
  if (connect(probe.get(), path.address(), SocketPath::size()) != 0) {
    return errno == EAGAIN ? std::optional(0) : std::nullopt;
  }
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer.uid == geteuid() ? std::optional(peer.pid) : std::nullopt;
}

OptionalString bundlePathInRecord(int folder, const std::string& socketName) {
  std::string bytes;
  if (!readRuntimeFile(folder, endpointRecordName(socketName), bytes).isOk()) return std::nullopt;
  auto record = endpointRecordFromBytes(bytes);
  struct stat socket = {};
  const bool isOfSocket = record &&
                          fstatat(folder, socketName.c_str(), &socket, AT_SYMLINK_NOFOLLOW) == 0 &&
                          record->device == socket.st_dev && record->inode == socket.st_ino;
  return isOfSocket ? OptionalString(std::move(record->bundlePath)) : std::nullopt;
}

// The path under which a socket of this line of /proc/net/unix listens; empty when it does not.
std::string listeningPath(const std::string& line) {
  constexpr unsigned kIsListening = 0x10000;
  std::istringstream fields(line);
  std::string field;
  std::string flags;
  fields >> field >> field >> field >> flags >> field >> field >> field;
  if ((std::strtoul(flags.c_str(), nullptr, 16) & kIsListening) == 0) return {};
  std::string path;
  std::getline(fields >> std::ws, path);
  return path;
}

// Whether the process finds the runtime folder of this one at `path`.
bool isOwnFolder(pid_t process, const std::string& path) {
  struct stat seen = {};
  struct stat own = {};
  const std::string root(ProcPath::ofProcess(process, "/root").view());
  if (stat((root + path).c_str(), &seen) != 0 || stat(runtimeFolderPath().c_str(), &own) != 0) {
    return path == runtimeFolderPath();
  }
  return seen.st_dev == own.st_dev && seen.st_ino == own.st_ino;
}

}  // namespace

void writeEndpointRecord(int folder, const std::string& socketName, const struct stat& socket) {
  const Bundle& bundle = Bundle::mainBundle();
  if (!isMainExecutable(bundle, ownExecutablePath())) return;
  const std::string record = xmlPropertyList({{kBundlePathKey, bundle.bundlePath()},
                                              {kSocketDeviceKey, std::uint64_t{socket.st_dev}},
                                              {kSocketInodeKey, std::uint64_t{socket.st_ino}}});
  // Without it, only processes of this PID namespace find the application.
  replaceRuntimeFile(folder, endpointRecordName(socketName), record)
      .report(DiagnosticCause::kOwnRecordNotWritten);
}

std::optional<EndpointRecord> endpointRecordFromBytes(std::string_view bytes) {
  const auto list = propertyListFromBytes(bytes);
  const auto* const content = list ? list->dictionary() : nullptr;
  if (content == nullptr) return std::nullopt;
  auto path = stringFor(*content, kBundlePathKey);
  const auto device = unsignedFor(*content, kSocketDeviceKey);
  const auto inode = unsignedFor(*content, kSocketInodeKey);
  if (!path || !device || !inode) return std::nullopt;
  return EndpointRecord{*std::move(path), *device, *inode};
}

void removeEndpointRecord(int folder, const std::string& socketName) noexcept {
  std::array<char, kEndpointRecordPrefix.size() + kFileNameLength + 1> name = {};
  char* const end =
      std::copy(kEndpointRecordPrefix.begin(), kEndpointRecordPrefix.end(), name.begin());
  socketName.copy(end, kFileNameLength);
  discardFile(folder, name.data());
}

OptionalString bundleOfUnseenEndpoint(const std::string& identifier) {
  const std::string socketName = fileNameForIdentifier(identifier);
  if (listenerOf(socketName) != 0) return std::nullopt;
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  return folder.isValid() ? bundlePathInRecord(folder.get(), socketName) : std::nullopt;
}

bool holdsEndpoint(pid_t pid, const std::string& identifier) {
  return listenerOf(fileNameForIdentifier(identifier)) == pid;
}

// The kernel keeps the name that the socket was bound to, before it was renamed; see EndpointName.
Listening listeningOf(pid_t pid, const std::string& identifier) {
  const std::string fileName = fileNameForIdentifier(identifier);
  auto result = Listening::kNowhere;
  std::ifstream table(ProcPath::ofProcess(pid, "/net/unix").c_str());
  for (std::string line; std::getline(table, line);) {
    if (line.find(fileName) == std::string::npos) continue;
    const auto [folder, name] = splitPath(listeningPath(line));
    const auto bound = partsOfBoundName(name);
    if (!bound || bound->fileName != fileName || bound->pid != pid) continue;
    if (isOwnFolder(pid, folder)) return Listening::kHere;
    result = Listening::kElsewhere;
  }
  return result;
}

}  // namespace clientcomm
