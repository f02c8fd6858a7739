#include "platform/linux/bundle_identities.h"

#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/bundle.h"
#include "platform/linux/check_in.h"
#include "platform/linux/file_signature.h"
#include "platform/process_manager.h"

namespace platform {
namespace {

/// Identities of bundles as their Info dictionaries say, each read again only when its file
/// changed.
class BundleIdentities {
 public:
  /// The identity of the bundle that stands at `path` now; nothing when its Info dictionary is
  /// missing or malformed.
  std::optional<BundleIdentity> identityAt(const std::string& path) {
    const std::string file = path + "/Contents/Info.plist";
    const auto signature = FileSignature::ofFile(file);
    if (!signature || !signature->isRegularFile()) return std::nullopt;
    const std::lock_guard lock(mutex_);
    if (const auto known = entries_.find(path); known != entries_.end()) {
      const FileSignature& old = known->second.signature;
      if (old.isSettled() && old == *signature) return known->second.identity;
    } else if (entries_.size() >= kCapacity) {
      entries_.clear();
    }
    return entries_.insert_or_assign(path, Entry{*signature, read(path, file)})
        .first->second.identity;
  }

 private:
  struct Entry {
    FileSignature signature;
    std::optional<BundleIdentity> identity;
  };
  static constexpr std::size_t kCapacity = 128;

  static std::optional<BundleIdentity> read(const std::string& path, const std::string& file) {
    const auto info = dictionaryWithContentsOfFile(file);
    if (!info) return std::nullopt;
    const auto text = [&info](const char* key) {
      const auto value = info->find(key);
      return value != info->end() ? value->second.stringValue() : std::nullopt;
    };
    return BundleIdentity{path, text(kCFBundleIdentifierKey), text(kCFBundleNameKey)};
  }

  std::mutex mutex_;
  std::unordered_map<std::string, Entry> entries_;
};

BundleIdentities& bundleIdentities() {
  static BundleIdentities& identities = *new BundleIdentities;
  return identities;
}

OptionalString nilIfEmpty(std::string text) {
  return text.empty() ? OptionalString() : OptionalString(std::move(text));
}

// What the process itself checked in as, in the place of what it was started from.
std::optional<BundleIdentity> checkedInIdentity(pid_t pid, std::string_view bundlePath) {
  auto record = checkInRecordForPID(pid);
  if (!record) return std::nullopt;
  return BundleIdentity{nilIfEmpty(std::move(record->bundlePath)).value_or(std::string(bundlePath)),
                        nilIfEmpty(std::move(record->bundleIdentifier)),
                        nilIfEmpty(std::move(record->bundleName))};
}

}  // namespace

std::optional<BundleIdentity> ownIdentity(pid_t pid, const ExecutableLink& link,
                                          std::string_view bundlePath) {
  if (!link.isRemoved()) {
    if (auto identity = bundleIdentities().identityAt(std::string(bundlePath))) return identity;
  }
  return checkedInIdentity(pid, bundlePath);
}

BundleIdentity successorIdentity(std::string_view bundlePath) {
  std::string path(bundlePath);
  if (auto identity = bundleIdentities().identityAt(path)) return *std::move(identity);
  return BundleIdentity{std::move(path), std::nullopt, std::nullopt};
}

PropertyListDictionary dictionaryOf(const BundleIdentity& identity) {
  PropertyListDictionary dictionary = {{kBundlePathKey, identity.path}};
  if (identity.identifier) dictionary[kCFBundleIdentifierKey] = *identity.identifier;
  if (identity.name) dictionary[kCFBundleNameKey] = *identity.name;
  return dictionary;
}

}  // namespace platform
