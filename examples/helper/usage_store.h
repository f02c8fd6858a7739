#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "examples/helper/database.h"

namespace sample {

/// One record of how a product is used, as it arrives.
struct UsageRecord {
  std::string productID;
  std::string version;
  int type = 0;  ///< One of the types below.
  std::string target;
  std::string key;    ///< Of a counter.
  std::string value;  ///< Of a text.
};

// The types of usage records, as they travel.
inline constexpr int kCommonCounter = 3;
inline constexpr int kAutoCreatedCounter = 4;
inline constexpr int kCustomText = 5;

/// Records that leave together, under a name of their own, exactly once.
struct UsageBatch {
  std::int64_t id = 0;
  std::string name;
  std::string productID;
  std::string opened;
};

/// The usage records in one folder. A record belongs to no batch until one is opened for its
/// product; from then on the batch's content never changes.
class UsageStore {
 public:
  /// Opens the records in `folder`, making the folder where it is missing.
  /// @throws FileError, DatabaseError.
  explicit UsageStore(const std::string& folder);

  /// False when the records' file was removed behind the helper's back.
  bool isStillInPlace() const noexcept { return database_.isStillInPlace(); }

  /// Counts or files one record; it is safe when the call returns. @throws DatabaseError.
  void add(const UsageRecord& record);

  /// Puts everything that belongs to no batch yet into a new one, if there is anything. Safe
  /// against a power failure when the call returns. @throws DatabaseError.
  void openBatch(const std::string& productID);

  /// Hands each batch that has not left yet, the oldest first, to `write` and clears its records
  /// away. Where `write` throws, or the process ends before it is done, the batch stays as it is
  /// and is handed over again, with the same name and content. @throws DatabaseError, and what
  /// `write` throws.
  using BatchWriter = std::function<void(const UsageBatch&, const nlohmann::json& content)>;
  void sendOpenBatches(const BatchWriter& write);

  /// What belongs to no batch yet, of all products. @throws DatabaseError.
  nlohmann::json collected();

 private:
  void addCount(const UsageRecord& record);
  void addText(const UsageRecord& record);
  bool hasUnassigned(const std::string& productID);
  std::optional<UsageBatch> nextOpenBatch();
  void markSent(const UsageBatch& batch);

  Database database_;
};

}  // namespace sample
