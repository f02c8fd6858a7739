#include "tests/integration/shipping/relay.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <utility>
#include <vector>

namespace {

constexpr int kLookInMilliseconds = 5;

// Closed with a reset: the other end sees a connection that broke.
void reset(int socket) {
  const linger now{1, 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  close(socket);
}

bool sendAll(int socket, const char* bytes, ssize_t count) {
  while (count > 0) {
    const ssize_t sent = send(socket, bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    count -= sent;
  }
  return true;
}

}  // namespace

struct Relay::Link {
  Link(int toClient, int toServer, bool isOpen)
      : client(toClient), server(toServer), isTunnelOpen(isOpen) {}
  ~Link() {
    reset(client);
    close(server);
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  int client;
  int server;
  bool isTunnelOpen;
  std::string tunnelRequest;
  bool isOver = false;
};

Relay::Relay(std::string server) : server_(std::move(server)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(listener_, 64) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    ADD_FAILURE() << "no port of the loopback: errno " << errno;
    return;
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { run(); });
}

Relay::~Relay() {
  isEnding_ = true;
  if (thread_.joinable()) thread_.join();
  links_.clear();
  close(listener_);
}

void Relay::setServer(const std::string& server) {
  const std::lock_guard lock(mutex_);
  server_ = server;
}

std::string Relay::tunnelRequest() {
  const std::lock_guard lock(mutex_);
  return tunnelRequest_;
}

void Relay::run() {
  while (!isEnding_) {
    if (isCutting_.exchange(false)) links_.clear();
    std::vector<pollfd> entries = {{listener_, POLLIN, 0}};
    for (const Link& link : links_) {
      entries.push_back({isStalled_ ? -1 : link.client, POLLIN, 0});
      entries.push_back({isStalled_ ? -1 : link.server, POLLIN, 0});
    }
    if (poll(entries.data(), entries.size(), kLookInMilliseconds) <= 0) continue;
    std::size_t index = 1;
    for (Link& link : links_) {
      if (entries[index++].revents != 0) carryFromClient(link);
      if (entries[index++].revents != 0) carryFromServer(link);
    }
    links_.remove_if([](const Link& link) { return link.isOver; });
    if (entries[0].revents != 0) accept();
  }
}

void Relay::accept() {
  const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) return;
  ++connections_;
  const int server = isRefusing_ ? -1 : connectToServer();
  if (server < 0) {
    reset(client);
    return;
  }
  links_.emplace_back(client, server, !isProxy_);
}

int Relay::connectToServer() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  {
    const std::lock_guard lock(mutex_);
    server_.copy(address.sun_path, sizeof address.sun_path - 1);
  }
  const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(server, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return server;
  close(server);
  return -1;
}

void Relay::carryFromClient(Link& link) {
  char bytes[16'384];
  const ssize_t count = recv(link.client, bytes, sizeof bytes, 0);
  if (count <= 0) {
    link.isOver = true;
    return;
  }
  if (!link.isTunnelOpen) {
    link.isOver = !openTunnel(link, {bytes, static_cast<std::size_t>(count)});
    return;
  }
  bytesFromClient_ += count;
  if (bytesToCut_ >= 0 && (bytesToCut_ -= count) < 0) {
    bytesToCut_ = -1;
    for (Link& each : links_) each.isOver = true;
    return;
  }
  if (!sendAll(link.server, bytes, count)) link.isOver = true;
}

void Relay::carryFromServer(Link& link) {
  char bytes[16'384];
  const ssize_t count = recv(link.server, bytes, sizeof bytes, 0);
  std::this_thread::sleep_for(answerDelay_.load());
  if (count <= 0 || !sendAll(link.client, bytes, count)) link.isOver = true;
}

bool Relay::openTunnel(Link& link, const std::string& bytes) {
  link.tunnelRequest += bytes;
  if (!link.tunnelRequest.ends_with("\r\n\r\n")) return link.tunnelRequest.size() < 4096;
  const std::lock_guard lock(mutex_);
  tunnelRequest_ = link.tunnelRequest;
  link.isTunnelOpen = true;
  constexpr std::string_view kAnswer = "HTTP/1.1 200 Connection established\r\n\r\n";
  return tunnelRequest_.starts_with("CONNECT ") &&
         sendAll(link.client, kAnswer.data(), static_cast<ssize_t>(kAnswer.size()));
}
