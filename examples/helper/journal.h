#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "examples/helper/database.h"

namespace sample {

/// Something that a host has handed over to be sent out.
struct Delivery {
  std::int64_t id = 0;
  std::string name;  ///< Of its folder in the outbox; one of its own.
  std::string kind;  ///< "log", "user-file", "product-file" or "customer-service".
  std::string bundleID;
  std::string productID;
  std::string version;
  std::string email;
  std::string path;  ///< Of the file to go with it; empty for none.
  std::string title;
  std::string description;
  std::string taken;
};

/// One question to a host whether it is ready to be upgraded, and what became of it.
struct UpgradeOffer {
  std::string bundleID;
  std::string productID;
  std::string fromVersion;
  std::string toVersion;
  std::string outcome;
  std::string code;
  std::string description;
};

/// The outcome of an offer that the host has not answered yet.
inline constexpr const char kOfferOpen[] = "offered";
/// Of one that is still to be looked up in the feed.
inline constexpr const char kOfferChecking[] = "checking";
/// Of one that the host has agreed to and whose package is about to be run.
inline constexpr const char kOfferAgreed[] = "agreed";
/// Of one whose package runs.
inline constexpr const char kOfferInstalling[] = "installing";

/// What the helper has promised and what it has done, in a database of its own. What a call has
/// noted is safe when it returns. Every method throws DatabaseError when it could not be done.
class Journal {
 public:
  explicit Journal(std::string folder);

  void noteUsageFolder(const std::string& folder);
  std::vector<std::string> usageFolders();

  /// Takes a delivery, under a new name.
  void take(const Delivery& delivery);
  /// The deliveries still to be made, the oldest first.
  std::vector<Delivery> openDeliveries();
  void closeDelivery(std::int64_t id);
  /// The latest 100 deliveries, the newest first; the "state" of each is "waiting" or "done".
  nlohmann::json latestDeliveries();

  /// @return the number of the offer.
  std::int64_t noteOffer(const UpgradeOffer& offer);
  void setOutcome(std::int64_t offer, const std::string& outcome);
  /// Notes what the feed says: new version, outcome, code and description.
  void noteCheck(std::int64_t id, const UpgradeOffer& offer);
  /// The offers with this outcome, by their numbers.
  std::map<std::int64_t, UpgradeOffer> offersWith(const std::string& outcome);
  /// The open offer that the answer `ready` of the host `bundleID` is meant for: "ignore" refuses
  /// the latest, any other answers the earliest.
  std::optional<std::int64_t> openOffer(const std::string& bundleID, const std::string& ready);

  void noteMessageCheck(const std::string& productID, const std::string& version);

  /// Everything noted, for people and tests to read.
  nlohmann::json contents();

 private:
  Database& database();

  std::string folder_;
  std::unique_ptr<Database> database_;
};

}  // namespace sample
