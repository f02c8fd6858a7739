#include "platform/linux/bundle_identities.h"

#include <sys/stat.h>

#include <ctime>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/bundle.h"
#include "platform/linux/check_in.h"
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
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    const std::lock_guard lock(mutex_);
    if (const auto known = entries_.find(path); known != entries_.end()) {
      if (known->second.isSettled && isSame(known->second.status, status)) {
        return known->second.identity;
      }
    } else if (entries_.size() >= kCapacity) {
      entries_.clear();
    }
    return (entries_[path] = read(path, file, status)).identity;
  }

 private:
  struct Entry {
    struct stat status;
    bool isSettled;
    std::optional<BundleIdentity> identity;
  };
  static constexpr std::size_t kCapacity = 128;

  static bool isSame(const timespec& a, const timespec& b) noexcept {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
  }
  static bool isSame(const struct stat& a, const struct stat& b) noexcept {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           isSame(a.st_mtim, b.st_mtim) && isSame(a.st_ctim, b.st_ctim);
  }

  // A file that changed just now can change again without a new time stamp: the file system's clock
  // ticks a hundred times a second at least, on some file systems once in two seconds.
  static bool isSettled(const struct stat& status) noexcept {
    constexpr time_t kSlowestTick = 2;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec - status.st_ctim.tv_sec > kSlowestTick;
  }

  static Entry read(const std::string& path, const std::string& file, const struct stat& status) {
    Entry entry{status, isSettled(status), std::nullopt};
    if (const auto info = dictionaryWithContentsOfFile(file)) {
      const auto text = [&info](const char* key) {
        const auto value = info->find(key);
        return value != info->end() ? value->second.stringValue() : std::nullopt;
      };
      entry.identity = BundleIdentity{path, text(kCFBundleIdentifierKey), text(kCFBundleNameKey)};
    }
    return entry;
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
