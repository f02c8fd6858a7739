#include "examples/helper/usage_store.h"

#include <initializer_list>

#include "examples/helper/durable_file.h"
#include "examples/helper/text.h"

namespace sample {
namespace {

using nlohmann::json;

// A counter is one row as long as it belongs to no batch (batch 0); what is counted after that
// begins a new row.
constexpr const char kSchema[] = R"(
CREATE TABLE IF NOT EXISTS counters (
  product, version, type INTEGER NOT NULL, target, key,
  count INTEGER NOT NULL, batch INTEGER NOT NULL DEFAULT 0,
  PRIMARY KEY (product, version, type, target, key, batch)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS texts (
  id INTEGER PRIMARY KEY AUTOINCREMENT, product, version, target, value, taken,
  batch INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS batches (
  id INTEGER PRIMARY KEY AUTOINCREMENT, name UNIQUE, product, opened, sent);
)";

std::string databasePath(const std::string& folder) {
  makeFolder(folder);
  return folder + "/Usage.db";
}

json counterOf(const Statement& row) {
  return {{"productID", row.text(0)}, {"version", row.text(1)}, {"type", row.number(2)},
          {"target", row.text(3)},    {"key", row.text(4)},     {"count", row.number(5)}};
}

json textOf(const Statement& row) {
  return {{"productID", row.text(0)},
          {"version", row.text(1)},
          {"target", row.text(2)},
          {"value", row.text(3)},
          {"taken", row.text(4)}};
}

json recordsOf(Database& database, std::int64_t batch) {
  json counters = json::array();
  Statement counter(database,
                    "SELECT product, version, type, target, key, count FROM counters"
                    " WHERE batch = ?1 ORDER BY product, version, type, target, key");
  counter.bind(1, batch);
  while (counter.step()) counters.push_back(counterOf(counter));
  json texts = json::array();
  Statement text(database,
                 "SELECT product, version, target, value, taken FROM texts"
                 " WHERE batch = ?1 ORDER BY id");
  text.bind(1, batch);
  while (text.step()) texts.push_back(textOf(text));
  return {{"counters", counters}, {"texts", texts}};
}

}  // namespace

UsageStore::UsageStore(const std::string& folder) : database_(databasePath(folder), kSchema) {}

void UsageStore::add(const UsageRecord& record) {
  if (record.type == kCustomText) {
    addText(record);
  } else {
    addCount(record);
  }
}

void UsageStore::addCount(const UsageRecord& record) {
  Transaction transaction(database_);
  Statement(database_,
            "INSERT INTO counters (product, version, type, target, key, count)"
            " VALUES (?1, ?2, ?3, ?4, ?5, 1)"
            " ON CONFLICT (product, version, type, target, key, batch)"
            " DO UPDATE SET count = count + 1")
      .bind(1, record.productID)
      .bind(2, record.version)
      .bind(3, record.type)
      .bind(4, record.target)
      .bind(5, record.key)
      .run();
  transaction.commit();
}

void UsageStore::addText(const UsageRecord& record) {
  Transaction transaction(database_);
  Statement(database_,
            "INSERT INTO texts (product, version, target, value, taken)"
            " VALUES (?1, ?2, ?3, ?4, ?5)")
      .bind(1, record.productID)
      .bind(2, record.version)
      .bind(3, record.target)
      .bind(4, record.value)
      .bind(5, timeStamp())
      .run();
  transaction.commit();
}

bool UsageStore::hasUnassigned(const std::string& productID) {
  Statement query(database_,
                  "SELECT EXISTS (SELECT 1 FROM counters WHERE product = ?1 AND batch = 0)"
                  " OR EXISTS (SELECT 1 FROM texts WHERE product = ?1 AND batch = 0)");
  query.bind(1, productID);
  return query.step() && query.number(0) != 0;
}

void UsageStore::openBatch(const std::string& productID) {
  // The batch's file must never be on disk without the batch: its records would be sent again.
  Transaction transaction(database_, Durability::kPower);
  if (!hasUnassigned(productID)) return;
  Statement(database_, "INSERT INTO batches (name, product, opened) VALUES (?1, ?2, ?3)")
      .bind(1, "usage-" + newIdentifier())
      .bind(2, productID)
      .bind(3, timeStamp())
      .run();
  const std::int64_t batch = sqlite3_last_insert_rowid(database_.handle());
  for (const char* assign : {"UPDATE counters SET batch = ?1 WHERE product = ?2 AND batch = 0",
                             "UPDATE texts SET batch = ?1 WHERE product = ?2 AND batch = 0"}) {
    Statement(database_, assign).bind(1, batch).bind(2, productID).run();
  }
  transaction.commit();
}

// The transaction also keeps out a helper that is being replaced and does the same at this moment.
void UsageStore::sendOpenBatches(const BatchWriter& write) {
  for (;;) {
    Transaction transaction(database_);
    const auto batch = nextOpenBatch();
    if (!batch) return;
    json content = recordsOf(database_, batch->id);
    content["batch"] = batch->name;
    content["productID"] = batch->productID;
    content["opened"] = batch->opened;
    write(*batch, content);
    markSent(*batch);
    transaction.commit();
  }
}

std::optional<UsageBatch> UsageStore::nextOpenBatch() {
  Statement query(database_,
                  "SELECT id, name, product, opened FROM batches WHERE sent IS NULL"
                  " ORDER BY id LIMIT 1");
  if (!query.step()) return std::nullopt;
  return UsageBatch{query.number(0), query.text(1), query.text(2), query.text(3)};
}

void UsageStore::markSent(const UsageBatch& batch) {
  Statement(database_, "UPDATE batches SET sent = ?1 WHERE id = ?2")
      .bind(1, timeStamp())
      .bind(2, batch.id)
      .run();
  for (const char* clear :
       {"DELETE FROM counters WHERE batch = ?1", "DELETE FROM texts WHERE batch = ?1"}) {
    Statement(database_, clear).bind(1, batch.id).run();
  }
}

json UsageStore::collected() { return recordsOf(database_, 0); }

}  // namespace sample
