#pragma once

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "examples/helper/journal.h"
#include "examples/helper/usage_store.h"

namespace sample {

/// The usage data of all products: each host's records lie in the folder that the host named, or in
/// the helper's own where it named none that can be written.
class UsageArchive {
 public:
  /// @param ownFolder where the records of a host without a folder go.
  /// @param outbox the folder that takes what leaves.
  /// @param entryMade called after each new entry of the outbox.
  UsageArchive(Journal& journal, std::string ownFolder, std::string outbox,
               std::function<void()> entryMade = {});

  /// Takes one record of the host `bundleID`; it is safe when the call returns.
  /// @throws FileError, DatabaseError: then it was not taken.
  void add(const std::string& bundleID, const UsageRecord& record);

  /// Writes everything collected under the product ID to the outbox, one file for each folder that
  /// holds any of it. What cannot be written now leaves with the next upload, or at the next start.
  void upload(const std::string& productID);

  /// Finishes what an earlier run began: a batch that was opened leaves exactly once.
  void finishOpenBatches();

  /// What is collected and has not left, by folder.
  nlohmann::json collected();

 private:
  UsageStore& storeFor(const std::string& bundleID);
  UsageStore& storeIn(const std::string& folder);
  void writeOpenBatches(UsageStore& store);
  void forEachStore(const std::function<void(const std::string& folder, UsageStore&)>& action);

  Journal& journal_;
  std::string ownFolder_;
  std::string outbox_;
  std::function<void()> entryMade_;
  std::map<std::string, std::unique_ptr<UsageStore>> stores_;
};

}  // namespace sample
