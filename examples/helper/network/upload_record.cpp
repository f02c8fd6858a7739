#include "examples/helper/network/upload_record.h"

#include <utility>

#include "examples/helper/durable_file.h"
#include "examples/helper/json_text.h"
#include "examples/helper/text.h"

namespace sample {
namespace {

using nlohmann::json;

constexpr const char kSchema[] = R"(
CREATE TABLE IF NOT EXISTS uploads (
  name PRIMARY KEY, about, part_size INTEGER NOT NULL, size INTEGER NOT NULL,
  failures INTEGER NOT NULL DEFAULT 0, error, changed, done) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS upload_parts (
  batch, part, size INTEGER NOT NULL, sha256, PRIMARY KEY (batch, part)) WITHOUT ROWID;
)";

json uploadIn(const Statement& row) {
  json upload = json::parse(row.text(1), nullptr, false);
  if (!upload.is_object()) upload = json::object();
  const bool isDone = row.number(5) != 0;
  upload["name"] = row.text(0);
  upload["size"] = row.number(2);
  upload["sent"] = isDone ? row.number(2) : row.number(6);
  upload["failures"] = row.number(3);
  upload["latestError"] = row.text(4);
  upload["changed"] = row.text(7);
  upload["state"] = isDone ? "done" : "waiting";
  return upload;
}

}  // namespace

UploadRecord::UploadRecord(std::string folder) : folder_(std::move(folder)) {}

Database& UploadRecord::database() {
  if (database_ && !database_->isStillInPlace()) database_.reset();
  if (!database_) {
    makeFolder(folder_);
    database_ = std::make_unique<Database>(folder_ + "/Uploads.db", kSchema);
  }
  return *database_;
}

std::optional<UploadRecord::Progress> UploadRecord::find(const std::string& batch) {
  Statement query(database(), "SELECT part_size, done IS NOT NULL FROM uploads WHERE name = ?1");
  query.bind(1, batch);
  if (!query.step()) return std::nullopt;
  Progress progress;
  progress.partSize = query.number(0);
  progress.isDone = query.number(1) != 0;
  Statement parts(*database_, "SELECT part, sha256 FROM upload_parts WHERE batch = ?1");
  parts.bind(1, batch);
  while (parts.step()) progress.parts[parts.text(0)] = parts.text(1);
  return progress;
}

void UploadRecord::begin(const UploadBatch& batch, std::int64_t partSize) {
  Transaction transaction(database());
  Statement(*database_,
            "INSERT INTO uploads (name, about, part_size, size, changed)"
            " VALUES (?1, ?2, ?3, ?4, ?5)")
      .bind(1, batch.name())
      .bind(2, jsonText(batch.about(), -1))
      .bind(3, partSize)
      .bind(4, batch.size())
      .bind(5, timeStamp())
      .run();
  transaction.commit();
}

void UploadRecord::notePart(const std::string& batch, const UploadPart& part,
                            const std::string& sha256) {
  Transaction transaction(database());
  Statement(*database_, "INSERT OR REPLACE INTO upload_parts VALUES (?1, ?2, ?3, ?4)")
      .bind(1, batch)
      .bind(2, part.name)
      .bind(3, part.size)
      .bind(4, sha256)
      .run();
  Statement(*database_, "UPDATE uploads SET changed = ?1 WHERE name = ?2")
      .bind(1, timeStamp())
      .bind(2, batch)
      .run();
  transaction.commit();
}

void UploadRecord::forgetPart(const std::string& batch, const UploadPart& part) {
  Transaction transaction(database());
  Statement(*database_, "DELETE FROM upload_parts WHERE batch = ?1 AND part = ?2")
      .bind(1, batch)
      .bind(2, part.name)
      .run();
  transaction.commit();
}

void UploadRecord::noteFailure(const std::string& batch, const std::string& error) {
  Transaction transaction(database());
  Statement(*database_,
            "UPDATE uploads SET failures = failures + 1, error = ?1, changed = ?2"
            " WHERE name = ?3")
      .bind(1, error)
      .bind(2, timeStamp())
      .bind(3, batch)
      .run();
  transaction.commit();
}

void UploadRecord::finish(const std::string& batch) {
  Transaction transaction(database(), Durability::kPower);
  Statement(*database_, "UPDATE uploads SET done = ?1, changed = ?1 WHERE name = ?2")
      .bind(1, timeStamp())
      .bind(2, batch)
      .run();
  Statement(*database_, "DELETE FROM upload_parts WHERE batch = ?1").bind(1, batch).run();
  transaction.commit();
}

json UploadRecord::contents() {
  json all = json::array();
  Statement query(database(),
                  "SELECT name, about, size, failures, error, done IS NOT NULL,"
                  " (SELECT coalesce(sum(size), 0) FROM upload_parts WHERE batch = name), changed"
                  " FROM uploads ORDER BY changed DESC LIMIT 100");
  while (query.step()) all.push_back(uploadIn(query));
  return all;
}

}  // namespace sample
