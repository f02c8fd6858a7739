#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_format.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"
#include "tests/support/test_sandbox.h"

// What the same work costs when nothing is done but the system calls that it cannot do without.

namespace bench {
namespace {

using clientcomm::ScopedFd;

constexpr std::size_t kLargestPacket = std::size_t{64} << 10;

char packet[kLargestPacket];

/// The address of `name` in the folder that the library's own sockets lie in, so that a connection
/// takes the same way through the file system.
sockaddr_un addressOf(const char* name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = clientcomm::runtimeFolderPath() + "/" + name;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

const sockaddr_un& serverAddress() {
  static const sockaddr_un address = addressOf("0123456789abcdef0123456789server");
  return address;
}

// The client's packet follows its connection at once: not to sleep for it is the fastest.
ssize_t receive(int client) {
  constexpr std::chrono::microseconds kPatience(20);
  const auto end = Clock::now() + kPatience;
  do {
    const ssize_t size = recv(client, packet, sizeof packet, MSG_DONTWAIT);
    if (size >= 0) return size;
    sched_yield();
  } while (Clock::now() < end);
  return recv(client, packet, sizeof packet, 0);
}

void serve(int client, const SharedCounter& handled) {
  const ssize_t size = receive(client);
  std::uint32_t replySize = 0;
  if (size >= static_cast<ssize_t>(sizeof replySize)) {
    std::memcpy(&replySize, packet, sizeof replySize);
  }
  handled.increment();
  if (replySize > 0) send(client, packet, replySize, MSG_NOSIGNAL);
}

int runServer(int listener, const SharedCounter& handled) {
  pinTo(kReceiverProcessor);
  for (;;) {
    pollfd entry{listener, POLLIN, 0};
    poll(&entry, 1, -1);
    const ScopedFd client(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (client.isValid()) serve(client.get(), handled);
  }
}

ScopedFd listenAt(const sockaddr_un& address) {
  ScopedFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener.get(), clientcomm::kEndpointBacklog) != 0) {
    std::perror("socket server");
    std::exit(1);
  }
  return listener;
}

ScopedFd connectTo(const sockaddr_un& address) {
  ScopedFd connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    connection.reset();
  }
  return connection;
}

bool sendTo(const ScopedFd& connection, std::size_t size, std::size_t replySize) {
  const auto announced = static_cast<std::uint32_t>(replySize);
  std::memcpy(packet, &announced, sizeof announced);
  return send(connection.get(), packet, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

}  // namespace

void Peer::waitForCalls(std::uint64_t before, std::uint64_t count) const {
  if (handled.waitFor(before + count)) return;
  std::fprintf(stderr, "a receiver handled %llu of %llu calls\n",
               static_cast<unsigned long long>(handled.value() - before),
               static_cast<unsigned long long>(count));
  std::exit(1);
}

Peer& socketServer() {
  static Peer* const peer = [] {
    const ScopedFd folder = clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
    const std::string path = support::sandbox() + "/server-calls";
    const SharedCounter handled(path);
    const ScopedFd listener = listenAt(serverAddress());
    return new Peer{support::ChildProcess::fork([&] { return runServer(listener.get(), handled); }),
                    SharedCounter(path)};
  }();
  return *peer;
}

bool sendPacketToServer(std::size_t size) {
  const ScopedFd connection = connectTo(serverAddress());
  return connection.isValid() && sendTo(connection, size, 0);
}

support::ChildProcess startTicking() {
  socketServer();
  return support::ChildProcess::fork([] {
    constexpr std::size_t kTickSize = 256;
    constexpr time_t kInterval = 5;
    timespec next{};
    for (clock_gettime(CLOCK_MONOTONIC, &next);; next.tv_sec += kInterval) {
      next.tv_nsec = 0;
      clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
      struct stat status {};
      stat(serverAddress().sun_path, &status);
      if (!sendPacketToServer(kTickSize)) return 1;
    }
  });
}

bool exchangePacketWithServer(std::size_t size, std::size_t replySize) {
  const ScopedFd connection = connectTo(serverAddress());
  return connection.isValid() && sendTo(connection, size, replySize) &&
         recv(connection.get(), packet, sizeof packet, 0) == static_cast<ssize_t>(replySize);
}

bool connectToNobody() {
  static const sockaddr_un address = addressOf("0123456789abcdef0123456789nobody");
  return !connectTo(address).isValid();
}

}  // namespace bench
