#include "examples/helper/usage_archive.h"

#include <glib.h>

#include <utility>

#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/user_defaults.h"
#include "examples/helper/durable_file.h"
#include "examples/helper/json_text.h"

namespace sample {
namespace {

// The key under which a host records its folder in its own user defaults.
constexpr const char kDataCollectPath[] = "DataCollectPath";

clientcomm::OptionalString folderNamedBy(const std::string& bundleID) {
  const auto settings =
      clientcomm::UserDefaults::standardUserDefaults().persistentDomainForName(bundleID);
  if (!settings) return std::nullopt;
  const auto found = settings->find(kDataCollectPath);
  if (found == settings->end()) return std::nullopt;
  auto folder = found->second.stringValue();
  const bool isAbsolute = folder && !folder->empty() && folder->front() == '/';
  return isAbsolute ? folder : std::nullopt;
}

}  // namespace

UsageArchive::UsageArchive(Journal& journal, std::string ownFolder, std::string outbox,
                           std::function<void()> entryMade)
    : journal_(journal),
      ownFolder_(std::move(ownFolder)),
      outbox_(std::move(outbox)),
      entryMade_(std::move(entryMade)) {}

void UsageArchive::add(const std::string& bundleID, const UsageRecord& record) {
  storeFor(bundleID).add(record);
}

void UsageArchive::upload(const std::string& productID) {
  forEachStore([&](const std::string&, UsageStore& store) {
    store.openBatch(productID);
    writeOpenBatches(store);
  });
}

void UsageArchive::finishOpenBatches() {
  forEachStore([this](const std::string&, UsageStore& store) { writeOpenBatches(store); });
}

nlohmann::json UsageArchive::collected() {
  nlohmann::json folders = nlohmann::json::object();
  forEachStore(
      [&](const std::string& folder, UsageStore& store) { folders[folder] = store.collected(); });
  return folders;
}

UsageStore& UsageArchive::storeFor(const std::string& bundleID) {
  if (const auto folder = folderNamedBy(bundleID)) {
    try {
      return storeIn(*folder);
    } catch (const std::runtime_error& error) {
      g_warning("usage data of %s goes to the helper's own folder: %s", bundleID.c_str(),
                error.what());
    }
  }
  return storeIn(ownFolder_);
}

UsageStore& UsageArchive::storeIn(const std::string& folder) {
  const auto known = stores_.find(folder);
  if (known != stores_.end() && known->second->isStillInPlace()) return *known->second;
  stores_.erase(folder);
  auto store = std::make_unique<UsageStore>(folder);
  // Noted before the first record goes in: a record in a folder that no one knows would never
  // leave.
  journal_.noteUsageFolder(folder);
  return *(stores_[folder] = std::move(store));
}

// Writing the file again after a batch was cut short yields the same bytes under the same name.
void UsageArchive::writeOpenBatches(UsageStore& store) {
  store.sendOpenBatches([this](const UsageBatch& batch, const nlohmann::json& content) {
    makeFolder(outbox_);
    writeFileDurably(outbox_ + "/" + batch.name + ".json", jsonText(content));
    if (entryMade_) entryMade_();
  });
}

void UsageArchive::forEachStore(
    const std::function<void(const std::string& folder, UsageStore&)>& action) {
  for (const std::string& folder : journal_.usageFolders()) {
    try {
      if (!clientcomm::fileExistsAtPath(folder)) continue;
      action(folder, storeIn(folder));
    } catch (const std::runtime_error& error) {
      g_warning("usage data in %s: %s", folder.c_str(), error.what());
    }
  }
}

}  // namespace sample
