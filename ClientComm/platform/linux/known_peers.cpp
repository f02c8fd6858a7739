#include "ClientComm/platform/linux/known_peers.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "ClientComm/platform/posix/removed_name.h"

namespace clientcomm {
namespace {

constexpr std::chrono::seconds kValidity{1};

}  // namespace

ProcessSerialNumber KnownPeers::add(pid_t pid, std::uint32_t token, const ExecutableLink& link,
                                    std::string_view bundlePath, pid_t recordPID) {
  const auto now = Clock::now();
  Peer* peer = findIf(pid, token, [&](const Peer& known) {
    return token != 0 || known.executable == link.target();
  });
  const bool isNew = peer == nullptr;
  const bool isSame = !isNew && peer->executable == link.target();
  if (isSame && now - peer->checkedAt < kValidity) return serialNumberOf(*peer);
  Peer draft = isNew ? Peer{pid, token, 0, now, {}, {}} : *peer;
  draft.checkedAt = now;
  draft.executable = link.target();
  identify(draft, link, bundlePath, recordPID);
  if (isNew) return serialNumberOf(insert(std::move(draft)));
  size_ -= sizeOf(*peer);
  *peer = std::move(draft);
  size_ += sizeOf(*peer);
  trim();
  return serialNumberOf(*peer);
}

std::optional<ProcessSerialNumber> KnownPeers::findRecent(pid_t pid, std::uint32_t token) {
  const auto now = Clock::now();
  const Peer* const peer =
      findIf(pid, token, [&](const Peer& known) { return now - known.checkedAt < kValidity; });
  return peer != nullptr ? std::optional(serialNumberOf(*peer)) : std::nullopt;
}

std::optional<ProcessSerialNumber> KnownPeers::find(pid_t pid, std::uint32_t token) {
  const Peer* const peer = findIf(pid, token, [](const Peer&) { return true; });
  return peer != nullptr ? std::optional(serialNumberOf(*peer)) : std::nullopt;
}

const BundleIdentity* KnownPeers::identity(const ProcessSerialNumber& psn) const {
  const auto found = byNumber_.find(psn.highLongOfPSN & ~kPeerBit);
  if (found == byNumber_.end() || serialNumberOf(*found->second) != psn) return nullptr;
  return &found->second->identity;
}

KnownPeers::Key KnownPeers::keyOf(pid_t pid, std::uint32_t token) {
  return Key{static_cast<std::uint32_t>(pid)} << 32 | token;
}

ProcessSerialNumber KnownPeers::serialNumberOf(const Peer& peer) {
  return {kPeerBit | peer.number, static_cast<std::uint32_t>(peer.pid)};
}

// The list's node, the entries of both tables, and the texts.
std::size_t KnownPeers::sizeOf(const Peer& peer) {
  constexpr std::size_t kNodes = sizeof(Peer) + 128;
  const auto sizeOfText = [](const OptionalString& text) { return text ? text->capacity() : 0; };
  return kNodes + peer.executable.capacity() + peer.identity.path.capacity() +
         sizeOfText(peer.identity.identifier) + sizeOfText(peer.identity.name);
}

// Finds a peer and puts it at the head of the list.
template <typename Condition>
KnownPeers::Peer* KnownPeers::findIf(pid_t pid, std::uint32_t token, Condition condition) {
  const auto [begin, end] = byKey_.equal_range(keyOf(pid, token));
  const auto found =
      std::find_if(begin, end, [&](const auto& entry) { return condition(*entry.second); });
  if (found == end) return nullptr;
  peers_.splice(peers_.begin(), peers_, found->second);
  return &*found->second;
}

// What was known of the peer before its bundle was removed outweighs what is at its path now. A
// token is of one process with one program; the end of a sandbox changes the paths of its files.
void KnownPeers::identify(Peer& peer, const ExecutableLink& link, std::string_view bundlePath,
                          pid_t recordPID) {
  if (auto own = ownIdentity(recordPID, link, bundlePath)) {
    peer.identity = *std::move(own);
    return;
  }
  const std::string path = pathBeforeRemoval(bundlePath);
  const Peer* const earlier = findIf(peer.pid, peer.token, [&](const Peer& known) {
    const bool isOneProgram = peer.token != 0 || pathBeforeRemoval(known.identity.path) == path;
    return isOneProgram && known.identity.identifier;
  });
  // Processes that neither have a token nor are seen cannot be told apart.
  const bool isOneProcess = peer.pid != 0 || peer.token != 0;
  peer.identity =
      earlier != nullptr && isOneProcess ? earlier->identity : successorIdentity(bundlePath);
}

KnownPeers::Peer& KnownPeers::insert(Peer peer) {
  do {
    peer.number = next_++ & ~kPeerBit;
  } while (byNumber_.contains(peer.number));
  Peers node;
  node.push_front(std::move(peer));
  const auto added = node.begin();
  const auto place = byKey_.emplace(keyOf(added->pid, added->token), added);
  try {
    byNumber_.emplace(added->number, added);
  } catch (...) {
    byKey_.erase(place);
    throw;
  }
  peers_.splice(peers_.begin(), node);
  size_ += sizeOf(*added);
  trim();
  return *added;
}

void KnownPeers::trim() {
  while (size_ > kMemoryForPeers && peers_.size() > 1) forgetOldest();
}

void KnownPeers::forgetOldest() {
  const auto oldest = std::prev(peers_.end());
  const auto [begin, end] = byKey_.equal_range(keyOf(oldest->pid, oldest->token));
  byKey_.erase(std::find_if(begin, end, [&](const auto& entry) { return entry.second == oldest; }));
  byNumber_.erase(oldest->number);
  size_ -= sizeOf(*oldest);
  peers_.erase(oldest);
}

}  // namespace clientcomm
