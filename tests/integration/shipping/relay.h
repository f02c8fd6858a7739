#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>

/// A TCP port of the loopback that leads to a server on a Unix socket, and fails on demand. It
/// carries bytes, so that TLS is between the two ends.
class Relay {
 public:
  /// Opens a free port. @param server path of the server's socket.
  explicit Relay(std::string server);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  std::uint16_t port() const { return port_; }

  /// Leads new connections to another server.
  void setServer(const std::string& server);
  /// Resets all connections, once, after this many further bytes from the client.
  void cutAfter(std::int64_t bytes) { bytesToCut_ = bytes; }
  /// Resets all connections, once.
  void cutNow() { isCutting_ = true; }
  /// Carries nothing while it is set.
  void setStalled(bool isStalled) { isStalled_ = isStalled; }
  /// Keeps back each piece of what the server says for so long.
  void setAnswerDelay(std::chrono::milliseconds delay) { answerDelay_ = delay; }
  /// Resets each new connection while it is set.
  void setRefusing(bool isRefusing) { isRefusing_ = isRefusing; }
  /// Expects clients to ask for a tunnel first, as an HTTP proxy does.
  void setProxy(bool isProxy) { isProxy_ = isProxy; }

  int connections() const { return connections_; }
  std::int64_t bytesFromClient() const { return bytesFromClient_; }
  /// What the latest client of a proxy asked for.
  std::string tunnelRequest();

 private:
  struct Link;

  void run();
  void accept();
  int connectToServer();
  void carryFromClient(Link& link);
  void carryFromServer(Link& link);
  bool openTunnel(Link& link, const std::string& bytes);

  std::mutex mutex_;
  std::string server_;
  std::string tunnelRequest_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::list<Link> links_;
  std::atomic<bool> isEnding_ = false;
  std::atomic<bool> isStalled_ = false;
  std::atomic<std::chrono::milliseconds> answerDelay_{};
  std::atomic<bool> isRefusing_ = false;
  std::atomic<bool> isCutting_ = false;
  std::atomic<bool> isProxy_ = false;
  std::atomic<std::int64_t> bytesToCut_ = -1;
  std::atomic<std::int64_t> bytesFromClient_ = 0;
  std::atomic<int> connections_ = 0;
  std::thread thread_;
};
