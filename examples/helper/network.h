#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "examples/helper/journal.h"

namespace sample {

/// What the helper does over the network. Everything runs on the main loop and nothing waits for a
/// server; after a failure it tries again by itself.
class Network {
 public:
  virtual ~Network() = default;

  /// Sends what the outbox holds, oldest failures last. Call it at the start, and again whenever
  /// there is a new entry.
  virtual void sendOutbox() = 0;

  /// Whether upgrades are looked up in a signed feed.
  virtual bool hasFeed() const = 0;
  /// Looks the offer's product up in the feed; `NetworkEvents::checked` is called with the result.
  virtual void checkFeed(std::int64_t id, const UpgradeOffer& offer) = 0;
  /// Whether the feed has a package for the offer.
  virtual bool canInstall(const UpgradeOffer& offer) const = 0;
  /// Runs that package; `NetworkEvents::installed` is called at each step.
  virtual void install(std::int64_t id, const UpgradeOffer& offer) = 0;

  /// Ends all transfers; what the server has acknowledged is not sent again by the next run.
  virtual void suspend() = 0;

  /// What was sent, is being sent and waits.
  virtual nlohmann::json uploads() = 0;
};

/// Where the helper keeps its files.
struct NetworkFolders {
  std::string data;      ///< For what the network has to remember.
  std::string outbox;    ///< What goes to the server.
  std::string upgrades;  ///< For the feed and the packages.
};

/// What the network tells, from the main loop. Must not throw.
struct NetworkEvents {
  std::function<void(std::int64_t id, const UpgradeOffer& offer)> checked;
  /// @return whether the outcome was noted.
  std::function<bool(std::int64_t id, const std::string& outcome)> installed;
};

/// The helper's network, by the settings of its bundle and its preferences.
/// @return null when no server is set, or this build has no network code.
std::unique_ptr<Network> makeNetwork(const NetworkFolders& folders, const NetworkEvents& events);

}  // namespace sample
