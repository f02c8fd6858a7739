#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <ctime>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/linux/check_in.h"
#include "platform/linux/peer_identity.h"
#include "platform/linux/process_text.h"
#include "platform/process_manager.h"

namespace platform {
namespace {

// Serial numbers of running processes have the lower bits of the start time in their high half;
// those of remembered peers have this bit set there and a running number.
constexpr std::uint32_t kPeerBit = 0x80000000;

constexpr std::string_view kDeletedSuffix = " (deleted)";

/// What is known of the bundle that a process runs from.
struct BundleIdentity {
  std::string path;
  OptionalString identifier;
  OptionalString name;
};

/// A link under /proc and the path that it gives, read without an allocation.
class ExecutableLink {
 public:
  static ExecutableLink ofProcess(pid_t pid) noexcept { return {"/proc/", pid, "/exe"}; }
  /// Fails with EINVAL where the descriptor is not one of a plain file.
  static ExecutableLink ofDescriptor(int descriptor) noexcept {
    ExecutableLink link("/proc/self/fd/", descriptor, "");
    struct stat linked = {};
    if (link.error_ == 0 && (fstat(descriptor, &linked) != 0 || !S_ISREG(linked.st_mode))) {
      link.error_ = EINVAL;
    }
    return link;
  }

  /// 0, or the errno value of the reading.
  int error() const noexcept { return error_; }
  /// The path as the kernel gives it, with its mark where the file was removed.
  std::string_view target() const noexcept { return {target_.data(), length_}; }
  /// Whether the file was removed; one whose own name looks like the kernel's mark was not.
  bool isRemoved() const noexcept {
    if (!target().ends_with(kDeletedSuffix)) return false;
    struct stat named = {};
    struct stat linked = {};
    return stat(target_.data(), &named) != 0 || stat(link_.data(), &linked) != 0 ||
           named.st_dev != linked.st_dev || named.st_ino != linked.st_ino;
  }

 private:
  ExecutableLink(std::string_view before, int number, std::string_view after) noexcept {
    char* end = std::copy(before.begin(), before.end(), link_.data());
    end = std::to_chars(end, link_.data() + link_.size(), number).ptr;
    *std::copy(after.begin(), after.end(), end) = '\0';
    const ssize_t length = readlink(link_.data(), target_.data(), target_.size() - 1);
    if (length < 0) error_ = errno;
    length_ = length < 0 ? 0 : static_cast<std::size_t>(length);
    target_[length_] = '\0';
  }

  std::array<char, 32> link_;
  int error_ = 0;
  std::size_t length_ = 0;
  std::array<char, PATH_MAX> target_;
};

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

// The identity that the process `pid` was started with, as far as that is still told: by the bundle
// while it stands, else by the process itself.
std::optional<BundleIdentity> ownIdentity(pid_t pid, const ExecutableLink& link,
                                          std::string_view bundlePath) {
  if (!link.isRemoved()) {
    if (auto identity = bundleIdentities().identityAt(std::string(bundlePath))) return identity;
  }
  return checkedInIdentity(pid, bundlePath);
}

// The identity that a process whose own is lost most likely has: that of what has been put in the
// place of its bundle.
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

/// The peers that sent something lately, so that each is looked up once and not with every event,
/// and is still known when it has ended.
class Peers {
 public:
  ProcessSerialNumber serialNumber(pid_t pid, const ExecutableLink& link,
                                   std::string_view bundlePath, std::uint32_t token) {
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    Entry* entry = find(pid, [&](const Peer& peer) { return peer.executable == link.target(); });
    if (entry == nullptr) {
      entry =
          &insert(pid, {0, 0, now, std::string(link.target()), identify(pid, link, bundlePath)});
    } else if (now - entry->second.checkedAt >= kValidity) {
      entry->second.identity = identify(pid, link, bundlePath);
      entry->second.checkedAt = now;
    }
    if (token != 0) entry->second.token = token;
    return serialNumberOf(*entry);
  }

  /// The number of a peer whose executable was looked at a moment ago, if it is the same still: no
  /// other program can have come by the token since, least of all one that the process executes.
  std::optional<ProcessSerialNumber> serialNumberOfKnown(pid_t pid, std::uint32_t token) {
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    return numberOf(find(pid, [&](const Peer& peer) {
      return peer.token == token && now - peer.checkedAt < kValidity;
    }));
  }

  /// The number of a peer that has ended, by what it said of itself before.
  std::optional<ProcessSerialNumber> serialNumberOfEnded(pid_t pid, std::uint32_t token) {
    const std::lock_guard lock(mutex_);
    return numberOf(find(pid, [&](const Peer& peer) { return peer.token == token; }));
  }

  std::optional<PropertyListDictionary> dictionary(const ProcessSerialNumber& psn) {
    const std::lock_guard lock(mutex_);
    const Entry* const entry = entryOf(psn);
    return entry != nullptr ? std::optional(dictionaryOf(entry->second.identity)) : std::nullopt;
  }

  OptionalString identifier(const ProcessSerialNumber& psn) {
    const std::lock_guard lock(mutex_);
    const Entry* const entry = entryOf(psn);
    return entry != nullptr ? entry->second.identity.identifier : std::nullopt;
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct Peer {
    std::uint32_t number;
    std::uint32_t token;  ///< 0 where the peer has none.
    Clock::time_point checkedAt;
    std::string executable;  ///< As the kernel gives its path.
    BundleIdentity identity;
  };
  /// By process; one that executes another program is another peer then.
  using Map = std::unordered_multimap<pid_t, Peer>;
  using Entry = Map::value_type;
  static constexpr std::chrono::seconds kValidity{1};

  static ProcessSerialNumber serialNumberOf(const Entry& entry) {
    return {kPeerBit | entry.second.number, static_cast<std::uint32_t>(entry.first)};
  }

  static std::optional<ProcessSerialNumber> numberOf(const Entry* entry) {
    return entry != nullptr ? std::optional(serialNumberOf(*entry)) : std::nullopt;
  }

  const Entry* entryOf(const ProcessSerialNumber& psn) const {
    const Entry* const entry = ring_[psn.highLongOfPSN % ring_.size()];
    const bool isSame = entry != nullptr &&
                        entry->second.number == (psn.highLongOfPSN & ~kPeerBit) &&
                        static_cast<std::uint32_t>(entry->first) == psn.lowLongOfPSN;
    return isSame ? entry : nullptr;
  }

  template <typename Condition>
  Entry* find(pid_t pid, Condition condition) {
    const auto [begin, end] = peers_.equal_range(pid);
    const auto found =
        std::find_if(begin, end, [&](const Entry& entry) { return condition(entry.second); });
    return found != end ? &*found : nullptr;
  }

  // What was known of the peer before its bundle was removed outweighs what stands there now.
  BundleIdentity identify(pid_t pid, const ExecutableLink& link, std::string_view bundlePath) {
    if (auto identity = ownIdentity(pid, link, bundlePath)) return *std::move(identity);
    const Entry* const earlier = find(pid, [&](const Peer& peer) {
      return peer.identity.path == bundlePath && peer.identity.identifier;
    });
    return earlier != nullptr ? earlier->second.identity : successorIdentity(bundlePath);
  }

  // The newest takes the place of the oldest.
  Entry& insert(pid_t pid, Peer peer) {
    peer.number = next_++ & ~kPeerBit;
    const Entry*& place = ring_[peer.number % ring_.size()];
    if (place != nullptr) erase(*std::exchange(place, nullptr));
    Entry& entry = *peers_.emplace(pid, std::move(peer));
    place = &entry;
    return entry;
  }

  void erase(const Entry& entry) {
    const auto [begin, end] = peers_.equal_range(entry.first);
    peers_.erase(std::find_if(begin, end, [&](const Entry& other) { return &other == &entry; }));
  }

  std::mutex mutex_;
  Map peers_;
  std::array<const Entry*, 256> ring_ = {};
  std::uint32_t next_ = 0;
};

Peers& peers() {
  static Peers& instance = *new Peers;
  return instance;
}

bool isGone(const ExecutableLink& link) noexcept {
  return link.error() == ENOENT || link.error() == ESRCH;
}

// The link that decides which executable a peer runs, or ran.
ExecutableLink linkOfPeer(pid_t pid, int executable) noexcept {
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  return isGone(link) && executable >= 0 ? ExecutableLink::ofDescriptor(executable) : link;
}

std::uint32_t highLong(std::uint64_t startTime) noexcept {
  return static_cast<std::uint32_t>(startTime) & ~kPeerBit;
}

}  // namespace

OSErr GetProcessForPID(std::int32_t pid, ProcessSerialNumber& psn) {
  if (pid <= 0) return procNotFound;
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  if (bundleOfExecutable(link.target()).empty()) return procNotFound;
  const auto startTime = processStartTime(pid);
  if (!startTime) return procNotFound;
  psn = {highLong(*startTime), static_cast<std::uint32_t>(pid)};
  return noErr;
}

std::optional<PropertyListDictionary> ProcessInformationCopyDictionary(
    const ProcessSerialNumber& psn, std::uint32_t infoToReturn) {
  if (infoToReturn != kProcessDictionaryIncludeAllInformationMask) return std::nullopt;
  if ((psn.highLongOfPSN & kPeerBit) != 0) return peers().dictionary(psn);
  const auto pid = static_cast<pid_t>(psn.lowLongOfPSN);
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  const std::string_view bundlePath = bundleOfExecutable(link.target());
  if (bundlePath.empty()) return std::nullopt;
  const auto startTime = processStartTime(pid);
  if (!startTime || highLong(*startTime) != psn.highLongOfPSN) return std::nullopt;
  const auto identity = ownIdentity(pid, link, bundlePath);
  return dictionaryOf(identity ? *identity : successorIdentity(bundlePath));
}

OptionalString bundleIdentifierOfProcess(const ProcessSerialNumber& psn) {
  if ((psn.highLongOfPSN & kPeerBit) != 0) return peers().identifier(psn);
  const auto info =
      ProcessInformationCopyDictionary(psn, kProcessDictionaryIncludeAllInformationMask);
  if (!info) return std::nullopt;
  const auto identifier = info->find(kCFBundleIdentifierKey);
  return identifier == info->end() ? std::nullopt : identifier->second.stringValue();
}

std::optional<ProcessSerialNumber> serialNumberForPeer(pid_t pid, int executable,
                                                       std::uint32_t token) {
  if (pid <= 0) return std::nullopt;
  if (token != 0) {
    if (const auto known = peers().serialNumberOfKnown(pid, token)) return known;
  }
  const ExecutableLink link = linkOfPeer(pid, executable);
  if (isGone(link) && executable < 0 && token != 0) {
    return peers().serialNumberOfEnded(pid, token);
  }
  const std::string_view bundlePath = bundleOfExecutable(link.target());
  if (link.error() != 0 || bundlePath.empty()) return std::nullopt;
  return peers().serialNumber(pid, link, bundlePath, token);
}

}  // namespace platform
