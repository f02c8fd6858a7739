#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "examples/helper/database.h"
#include "examples/helper/network/upload_batch.h"

namespace sample {

/// What the server has acknowledged of each batch, in a database of its own. What was noted is safe
/// when the call returns. Every method throws DatabaseError when it could not be done.
class UploadRecord {
 public:
  explicit UploadRecord(std::string folder);

  struct Progress {
    std::int64_t partSize = 0;
    bool isDone = false;
    /// The SHA-256 of each part that the server has acknowledged, by the part's name.
    std::map<std::string, std::string> parts;
  };

  /// @return nothing for a batch that was never begun.
  std::optional<Progress> find(const std::string& batch);

  void begin(const UploadBatch& batch, std::int64_t partSize);
  void notePart(const std::string& batch, const UploadPart& part, const std::string& sha256);
  /// Takes a part back that the server does not have after all.
  void forgetPart(const std::string& batch, const UploadPart& part);
  void noteFailure(const std::string& batch, const std::string& error);
  /// The server has the whole batch. Safe against a power failure when the call returns.
  void finish(const std::string& batch);

  /// The batches, those that changed last first, 100 at most.
  nlohmann::json contents();

 private:
  Database& database();

  std::string folder_;
  std::unique_ptr<Database> database_;
};

}  // namespace sample
