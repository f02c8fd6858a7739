#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace sample {

/// What the helper does over the network. Everything runs on the main loop and nothing waits for a
/// server; after a failure it tries again by itself.
class Network {
 public:
  virtual ~Network() = default;

  /// Sends what the outbox holds, oldest failures last. Call it at the start, and again whenever
  /// there is a new entry.
  virtual void sendOutbox() = 0;

  /// Ends all transfers; what the server has acknowledged is not sent again by the next run.
  virtual void suspend() = 0;

  /// What was sent, is being sent and waits.
  virtual nlohmann::json uploads() = 0;
};

/// Where the helper keeps its files.
struct NetworkFolders {
  std::string data;    ///< For what the network has to remember.
  std::string outbox;  ///< What goes to the server.
};

/// The helper's network, by the settings of its bundle and its preferences.
/// @return null when no server is set, or this build has no network code.
std::unique_ptr<Network> makeNetwork(const NetworkFolders& folders);

}  // namespace sample
