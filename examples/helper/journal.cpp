#include "examples/helper/journal.h"

#include <utility>

#include "examples/helper/durable_file.h"
#include "examples/helper/text.h"

namespace sample {
namespace {

using nlohmann::json;

constexpr const char kSchema[] = R"(
CREATE TABLE IF NOT EXISTS usage_folders (path PRIMARY KEY) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS deliveries (
  id INTEGER PRIMARY KEY AUTOINCREMENT, name UNIQUE, kind, bundle, product, version, email, path,
  title, description, taken, done);
CREATE TABLE IF NOT EXISTS offers (
  id INTEGER PRIMARY KEY AUTOINCREMENT, bundle, product, from_version, to_version, outcome, code,
  description, changed);
CREATE TABLE IF NOT EXISTS message_checks (
  product, version, count INTEGER NOT NULL, latest, PRIMARY KEY (product, version)) WITHOUT ROWID;
)";

json deliveriesIn(Database& database) {
  json all = json::array();
  Statement query(database, "SELECT name, kind, done IS NOT NULL FROM deliveries ORDER BY id");
  while (query.step()) {
    all.push_back(
        {{"name", query.text(0)}, {"kind", query.text(1)}, {"done", query.number(2) != 0}});
  }
  return all;
}

json offersIn(Database& database) {
  json all = json::array();
  Statement query(database,
                  "SELECT bundle, product, from_version, to_version, outcome, code, description"
                  " FROM offers ORDER BY id");
  while (query.step()) {
    all.push_back({{"bundleIdentifier", query.text(0)},
                   {"productID", query.text(1)},
                   {"fromVersion", query.text(2)},
                   {"toVersion", query.text(3)},
                   {"outcome", query.text(4)},
                   {"code", query.text(5)},
                   {"description", query.text(6)}});
  }
  return all;
}

json messageChecksIn(Database& database) {
  json all = json::array();
  Statement query(database, "SELECT product, version, count, latest FROM message_checks");
  while (query.step()) {
    all.push_back({{"productID", query.text(0)},
                   {"version", query.text(1)},
                   {"count", query.number(2)},
                   {"latest", query.text(3)}});
  }
  return all;
}

}  // namespace

Journal::Journal(std::string folder) : folder_(std::move(folder)) {}

// Opened on first use: a helper without a place to write still answers what needs none.
Database& Journal::database() {
  if (database_ && !database_->isStillInPlace()) database_.reset();
  if (!database_) {
    makeFolder(folder_);
    database_ = std::make_unique<Database>(folder_ + "/Helper.db", kSchema);
  }
  return *database_;
}

void Journal::noteUsageFolder(const std::string& folder) {
  Transaction transaction(database(), Durability::kPower);
  Statement(*database_, "INSERT OR IGNORE INTO usage_folders (path) VALUES (?1)")
      .bind(1, folder)
      .run();
  transaction.commit();
}

std::vector<std::string> Journal::usageFolders() {
  std::vector<std::string> folders;
  Statement query(database(), "SELECT path FROM usage_folders");
  while (query.step()) folders.push_back(query.text(0));
  return folders;
}

void Journal::take(const Delivery& delivery) {
  Transaction transaction(database(), Durability::kPower);
  Statement(*database_,
            "INSERT INTO deliveries (name, kind, bundle, product, version, email, path, title,"
            " description, taken) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)")
      .bind(1, delivery.kind + "-" + newIdentifier())
      .bind(2, delivery.kind)
      .bind(3, delivery.bundleID)
      .bind(4, delivery.productID)
      .bind(5, delivery.version)
      .bind(6, delivery.email)
      .bind(7, delivery.path)
      .bind(8, delivery.title)
      .bind(9, delivery.description)
      .bind(10, timeStamp())
      .run();
  transaction.commit();
}

std::vector<Delivery> Journal::openDeliveries() {
  std::vector<Delivery> deliveries;
  Statement query(database(),
                  "SELECT id, name, kind, bundle, product, version, email, path, title,"
                  " description, taken FROM deliveries WHERE done IS NULL ORDER BY id");
  while (query.step()) {
    deliveries.push_back({query.number(0), query.text(1), query.text(2), query.text(3),
                          query.text(4), query.text(5), query.text(6), query.text(7), query.text(8),
                          query.text(9), query.text(10)});
  }
  return deliveries;
}

void Journal::closeDelivery(std::int64_t id) {
  Transaction transaction(database());
  Statement(*database_, "UPDATE deliveries SET done = ?1 WHERE id = ?2")
      .bind(1, timeStamp())
      .bind(2, id)
      .run();
  transaction.commit();
}

json Journal::latestDeliveries() {
  json all = json::array();
  Statement query(database(),
                  "SELECT name, kind, bundle, product, path, title, done IS NOT NULL"
                  " FROM deliveries ORDER BY id DESC LIMIT 100");
  while (query.step()) {
    all.push_back({{"name", query.text(0)},
                   {"kind", query.text(1)},
                   {"bundleIdentifier", query.text(2)},
                   {"productID", query.text(3)},
                   {"path", query.text(4)},
                   {"title", query.text(5)},
                   {"state", query.number(6) != 0 ? "done" : "waiting"}});
  }
  return all;
}

std::int64_t Journal::noteOffer(const UpgradeOffer& offer) {
  Transaction transaction(database());
  Statement(*database_,
            "INSERT INTO offers (bundle, product, from_version, to_version, outcome, code,"
            " description, changed) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)")
      .bind(1, offer.bundleID)
      .bind(2, offer.productID)
      .bind(3, offer.fromVersion)
      .bind(4, offer.toVersion)
      .bind(5, offer.outcome)
      .bind(6, offer.code)
      .bind(7, offer.description)
      .bind(8, timeStamp())
      .run();
  const std::int64_t id = sqlite3_last_insert_rowid(database_->handle());
  transaction.commit();
  return id;
}

void Journal::setOutcome(std::int64_t offer, const std::string& outcome) {
  Transaction transaction(database());
  Statement(*database_, "UPDATE offers SET outcome = ?1, changed = ?2 WHERE id = ?3")
      .bind(1, outcome)
      .bind(2, timeStamp())
      .bind(3, offer)
      .run();
  transaction.commit();
}

void Journal::noteCheck(std::int64_t id, const UpgradeOffer& offer) {
  Transaction transaction(database());
  Statement(*database_,
            "UPDATE offers SET to_version = ?1, outcome = ?2, code = ?3, description = ?4,"
            " changed = ?5 WHERE id = ?6")
      .bind(1, offer.toVersion)
      .bind(2, offer.outcome)
      .bind(3, offer.code)
      .bind(4, offer.description)
      .bind(5, timeStamp())
      .bind(6, id)
      .run();
  transaction.commit();
}

std::map<std::int64_t, UpgradeOffer> Journal::offersWith(const std::string& outcome) {
  std::map<std::int64_t, UpgradeOffer> offers;
  Statement query(database(),
                  "SELECT id, bundle, product, from_version, to_version, outcome, code, description"
                  " FROM offers WHERE outcome = ?1");
  query.bind(1, outcome);
  while (query.step()) {
    offers[query.number(0)] = {query.text(1), query.text(2), query.text(3), query.text(4),
                               query.text(5), query.text(6), query.text(7)};
  }
  return offers;
}

std::optional<std::int64_t> Journal::openOffer(const std::string& bundleID,
                                               const std::string& ready) {
  Statement query(database(),
                  ready == "ignore"
                      ? "SELECT max(id) FROM offers WHERE bundle = ?1 AND outcome = ?2"
                      : "SELECT min(id) FROM offers WHERE bundle = ?1 AND outcome = ?2");
  query.bind(1, bundleID).bind(2, kOfferOpen);
  if (!query.step() || query.number(0) == 0) return std::nullopt;
  return query.number(0);
}

void Journal::noteMessageCheck(const std::string& productID, const std::string& version) {
  Transaction transaction(database());
  Statement(*database_,
            "INSERT INTO message_checks (product, version, count, latest) VALUES (?1, ?2, 1, ?3)"
            " ON CONFLICT (product, version) DO UPDATE SET count = count + 1, latest = ?3")
      .bind(1, productID)
      .bind(2, version)
      .bind(3, timeStamp())
      .run();
  transaction.commit();
}

json Journal::contents() {
  Database& open = database();
  return {{"deliveries", deliveriesIn(open)},
          {"upgrades", offersIn(open)},
          {"messageChecks", messageChecksIn(open)}};
}

}  // namespace sample
