#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "ClientComm/platform/linux/bundle_identities.h"
#include "ClientComm/platform/linux/executable_link.h"
#include "ClientComm/platform/process_manager.h"

namespace clientcomm {

/// Serial numbers of running processes have the lower bits of the start time in their high half;
/// those of remembered peers have this bit set there and a running number.
inline constexpr std::uint32_t kPeerBit = 0x80000000;

/// The memory that is spent on remembering peers, in bytes: room for some 8,000 with paths of usual
/// length. The least recently used is dropped first.
inline constexpr std::size_t kMemoryForPeers = std::size_t{4} << 20;

/// The peers that sent something lately, so that each is looked up once and not with every event,
/// and is still known after it has exited. A peer is a process, by its ID and token: 0 for a
/// process of another process-ID namespace, and for one that has no token, which is then told apart
/// by its executable too.
class KnownPeers {
 public:
  /// Remembers the peer that runs the executable at `link`, in the bundle at `bundlePath`; its
  /// bundle is looked at again when that was done more than a second ago.
  /// @param recordPID the ID under which /proc shows the running process, or 0.
  ProcessSerialNumber add(pid_t pid, std::uint32_t token, const ExecutableLink& link,
                          std::string_view bundlePath, pid_t recordPID);

  /// A peer whose bundle was looked at less than a second ago. No other program can have come by
  /// the token since, least of all one that the process executes.
  std::optional<ProcessSerialNumber> findRecent(pid_t pid, std::uint32_t token);

  /// A peer, however long ago its bundle was looked at.
  std::optional<ProcessSerialNumber> find(pid_t pid, std::uint32_t token);

  /// The identity of a remembered peer; null when it is unknown or forgotten.
  const BundleIdentity* identity(const ProcessSerialNumber& psn) const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Peer {
    pid_t pid;
    std::uint32_t token;
    std::uint32_t number;
    Clock::time_point checkedAt;
    std::string executable;  ///< As the kernel gives its path.
    BundleIdentity identity;
  };
  using Peers = std::list<Peer>;
  using Key = std::uint64_t;
  /// std::hash keeps only the token in a 32-bit build, and that of many peers is 0.
  struct KeyHash {
    std::size_t operator()(Key key) const noexcept {
      return static_cast<std::size_t>(key * 0x9E3779B97F4A7C15U >> 32U);
    }
  };

  static Key keyOf(pid_t pid, std::uint32_t token);
  static ProcessSerialNumber serialNumberOf(const Peer& peer);
  static std::size_t sizeOf(const Peer& peer);

  template <typename Condition>
  Peer* findIf(pid_t pid, std::uint32_t token, Condition condition);
  void identify(Peer& peer, const ExecutableLink& link, std::string_view bundlePath,
                pid_t recordPID);
  Peer& insert(Peer peer);
  void trim();
  void forgetOldest();

  Peers peers_;  ///< Most recently used first.
  std::unordered_multimap<Key, Peers::iterator, KeyHash> byKey_;
  std::unordered_map<std::uint32_t, Peers::iterator> byNumber_;
  std::size_t size_ = 0;
  std::uint32_t next_ = 0;
};

}  // namespace clientcomm
