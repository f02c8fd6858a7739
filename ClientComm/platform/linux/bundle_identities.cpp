#include "ClientComm/platform/linux/bundle_identities.h"

#include <chrono>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/linux/local_file.h"
#include "ClientComm/platform/linux/patient_reader.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "ClientComm/platform/process_manager.h"

namespace clientcomm {
namespace {

OptionalString textIn(const PropertyListDictionary& info, const char* key) {
  OptionalString text = stringFor(info, key);
  return text && text->size() <= kMaximumIdentifierLength ? text : std::nullopt;
}

// What an Info dictionary says; one that cannot be read says nothing.
std::optional<BundleIdentity> identityIn(const std::string& path, const Status& status,
                                         const std::string& bytes) {
  const auto list = status.isOk() ? propertyListFromBytes(bytes) : std::nullopt;
  const auto* const info = list ? list->dictionary() : nullptr;
  if (info == nullptr) return std::nullopt;
  return BundleIdentity{path, textIn(*info, kCFBundleIdentifierKey),
                        textIn(*info, kCFBundleNameKey)};
}

/// Identities of bundles as their Info dictionaries say, each read again only when its file
/// changed. Those on file systems that may not answer are read by another process, and not again
/// for a while.
class BundleIdentities {
 public:
  struct Answer {
    LocalAccess access;
    std::optional<BundleIdentity> identity;
  };

  /// The identity of the bundle at `path` now, where it is on a local file system;
  /// nothing when its Info dictionary is missing, malformed or too large.
  Answer localIdentityAt(const std::string& path) {
    const LocalFile info = openLocalFile(stringByAppendingPathComponent(path, kInfoFile));
    if (info.access != LocalAccess::kOpen) return {info.access, std::nullopt};
    const auto signature = FileSignature::ofDescriptor(info.file.get());
    if (!signature || !signature->isRegularFile()) return {LocalAccess::kMissing, std::nullopt};
    const std::lock_guard lock(mutex_);
    if (const auto known = local_.find(path); known != local_.end()) {
      const FileSignature& old = known->second.signature;
      if (old.isSettled() && old == *signature) return {info.access, known->second.identity};
    } else if (local_.size() >= kCapacity) {
      local_.clear();
    }
    std::string bytes;
    const Status read = readLocalFile(info.file.get(), kLargestInfo, bytes);
    auto identity = identityIn(path, read, bytes);
    local_.insert_or_assign(path, Local{*signature, identity});
    return {info.access, std::move(identity)};
  }

  /// The same for a bundle on any other file system.
  std::optional<BundleIdentity> remoteIdentityAt(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    if (const auto known = remote_.find(path); known != remote_.end()) {
      const Clock::duration validity = known->second.identity ? kRemoteValidity : kReadPause;
      if (now - known->second.readAt < validity) return known->second.identity;
    } else if (remote_.size() >= kCapacity) {
      remote_.clear();
    }
    std::string bytes;
    const Status read =
        readByChildProcess(stringByAppendingPathComponent(path, kInfoFile), kLargestInfo, bytes);
    auto identity = identityIn(path, read, bytes);
    remote_.insert_or_assign(path, Remote{now, identity});
    return identity;
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct Local {
    FileSignature signature;
    std::optional<BundleIdentity> identity;
  };
  struct Remote {
    Clock::time_point readAt;
    std::optional<BundleIdentity> identity;
  };
  // More than the hosts of one user: beyond it all are read again and again.
  static constexpr std::size_t kCapacity = 1024;
  static constexpr std::chrono::minutes kRemoteValidity{1};

  std::mutex mutex_;  // TQHPProcessList is for any thread
  std::unordered_map<std::string, Local> local_;
  std::unordered_map<std::string, Remote> remote_;
};

BundleIdentities& bundleIdentities() {
  static BundleIdentities& identities = *new BundleIdentities;
  return identities;
}

OptionalString acceptable(std::string text) {
  const bool isAccepted = !text.empty() && text.size() <= kMaximumIdentifierLength;
  return isAccepted ? OptionalString(std::move(text)) : std::nullopt;
}

// What the process recorded of itself, whose bundle may be gone, or be in a sandbox. A process of
// another PID namespace wrote its record under the ID that it has there.
std::optional<BundleIdentity> recordedIdentity(pid_t pid, const std::string& bundlePath) {
  auto record = pid > 0 ? processRecordForPID(pid) : std::nullopt;
  if (!record && pid > 0 && mayHaveInnerPID(pid)) {
    if (const auto startTime = processStartTime(pid)) {
      record = unseenProcessRecord(bundlePath, startTime);
    }
  }
  if (!record && pid == 0) record = unseenProcessRecord(bundlePath, std::nullopt);
  if (!record) return std::nullopt;
  return BundleIdentity{record->bundlePath.empty() ? bundlePath : record->bundlePath,
                        acceptable(std::move(record->bundleIdentifier)),
                        acceptable(std::move(record->bundleName))};
}

}  // namespace

std::optional<BundleIdentity> ownIdentity(pid_t pid, const ExecutableLink& link,
                                          std::string_view bundlePath) {
  const std::string path(bundlePath);
  if (link.isRemoved()) return recordedIdentity(pid, path);
  auto local = bundleIdentities().localIdentityAt(path);
  if (local.identity) return std::move(local.identity);
  auto recorded = recordedIdentity(pid, path);
  if (local.access != LocalAccess::kMayBlock ||
      (recorded && recorded->path == pathBeforeRemoval(path))) {
    return recorded;
  }
  auto remote = bundleIdentities().remoteIdentityAt(path);
  return remote ? std::move(remote) : std::move(recorded);
}

BundleIdentity successorIdentity(std::string_view bundlePath) {
  std::string path = pathBeforeRemoval(bundlePath);
  auto [access, identity] = bundleIdentities().localIdentityAt(path);
  if (access == LocalAccess::kMayBlock) identity = bundleIdentities().remoteIdentityAt(path);
  return identity ? *std::move(identity) : BundleIdentity{std::move(path), {}, {}};
}

PropertyListDictionary dictionaryOf(const BundleIdentity& identity) {
  PropertyListDictionary dictionary = {{kBundlePathKey, pathBeforeRemoval(identity.path)}};
  if (identity.identifier) dictionary[kCFBundleIdentifierKey] = *identity.identifier;
  if (identity.name) dictionary[kCFBundleNameKey] = *identity.name;
  return dictionary;
}

}  // namespace clientcomm
