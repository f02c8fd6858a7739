#include "tests/compatibility/raw_endpoint.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>

#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_sandbox.h"

namespace compatibility {
namespace {

namespace fs = std::filesystem;
using clientcomm::ScopedFd;

std::string pathInRuntimeFolder(const std::string& name) {
  return clientcomm::runtimeFolderPath() + "/" + name;
}

std::string pathOfReceived(std::size_t index) {
  return support::sandbox() + "/received-" + std::to_string(index);
}

}  // namespace

int serveRaw(const std::string& identifier, const std::string& boundName,
             const std::vector<std::string>& answers) {
  const ScopedFd folder = clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
  const ScopedFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  const clientcomm::SocketPath path(boundName);
  if (bind(listener.get(), path.address(), clientcomm::SocketPath::size()) != 0) return 1;
  if (listen(listener.get(), 16) != 0) return 2;
  const timeval limit{30, 0};  // of each accept
  setsockopt(listener.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  const std::string name = clientcomm::fileNameForIdentifier(identifier);
  fs::rename(pathInRuntimeFolder(boundName), pathInRuntimeFolder(name));
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const ScopedFd peer(accept(listener.get(), nullptr, nullptr));
    std::string bytes(clientcomm::kMaximumPacketSize, '\0');
    const ssize_t size = recv(peer.get(), bytes.data(), bytes.size(), 0);
    if (size < 0) return 3;
    bytes.resize(static_cast<std::size_t>(size));
    support::writeFile(pathOfReceived(i), bytes);
    if (!answers[i].empty() && !support::raw::send(peer.get(), answers[i])) return 4;
  }
  return 0;
}

bool waitForEndpoint(const std::string& identifier) {
  const std::string path = pathInRuntimeFolder(clientcomm::fileNameForIdentifier(identifier));
  return support::waitUntil([&] { return fs::exists(fs::symlink_status(path)); });
}

std::string receivedPacket(std::size_t index) { return support::readFile(pathOfReceived(index)); }

std::string boundNameOf(const std::string& identifier, std::string_view version) {
  return clientcomm::fileNameForIdentifier(identifier) + "." + std::to_string(getpid()) + "." +
         std::string(version);
}

}  // namespace compatibility
