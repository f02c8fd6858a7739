#include "platform/linux/peer_identity.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/linux/bundle_identities.h"
#include "platform/linux/executable_link.h"
#include "platform/linux/process_text.h"

namespace platform {
namespace {

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

}  // namespace

std::optional<PropertyListDictionary> dictionaryOfPeer(const ProcessSerialNumber& psn) {
  return peers().dictionary(psn);
}

OptionalString identifierOfPeer(const ProcessSerialNumber& psn) { return peers().identifier(psn); }

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
