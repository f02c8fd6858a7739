#include "ClientComm/platform/linux/peer_identity.h"

#include <cerrno>
#include <mutex>
#include <string_view>

#include "ClientComm/platform/linux/bundle_identities.h"
#include "ClientComm/platform/linux/executable_link.h"
#include "ClientComm/platform/linux/known_peers.h"
#include "ClientComm/platform/linux/peer_process.h"
#include "ClientComm/platform/linux/process_text.h"

namespace clientcomm {
namespace {

// TQHPProcessList, which is for any thread, asks for peers too.
std::mutex& mutexOfPeers() {
  static std::mutex& mutex = *new std::mutex;
  return mutex;
}

KnownPeers& peers() {
  static KnownPeers& instance = *new KnownPeers;
  return instance;
}

PeerIdentity identityOf(const std::optional<ProcessSerialNumber>& psn) {
  return psn ? PeerIdentity{PeerKind::kApplication, *psn} : PeerIdentity{};
}

// Only then what the process handed over counts: it is gone or hidden, or may not be looked at.
bool isWithheld(int error) noexcept {
  return error == ENOENT || error == ESRCH || error == EACCES || error == EPERM;
}

// The identity by an executable that the kernel named, or that the process handed over.
PeerIdentity identityOf(pid_t pid, std::uint32_t token, const ExecutableLink& link,
                        pid_t recordPID) {
  if (link.error() != 0) return {};
  const std::string_view bundlePath = bundleOfExecutable(link.target());
  if (bundlePath.empty()) return {PeerKind::kNoApplication, {}};
  return identityOf(peers().add(pid, token, link, bundlePath, recordPID));
}

}  // namespace

PeerIdentity identityOfPeer(pid_t pid, int socket, int executable, std::uint32_t token) {
  if (pid < 0) return {};
  const std::lock_guard lock(mutexOfPeers());
  if (token != 0) {
    if (const auto known = peers().findRecent(pid, token)) return identityOf(known);
  }
  const PeerProcess peer(pid, socket);
  const pid_t id = peer.idInProc();
  const ExecutableLink link = ExecutableLink::ofProcess(id);
  const bool isPeersOwn = id != 0 && !peer.hasExited();
  if (isPeersOwn && !isWithheld(link.error())) return identityOf(pid, token, link, id);
  PeerIdentity handedOver;
  if (executable >= 0) {
    const ExecutableLink own = ExecutableLink::ofDescriptor(executable);
    handedOver = identityOf(pid, token, own, isPeersOwn ? id : 0);
    // The mounts of a sandbox end with it, and the path of the executable with them.
    if (handedOver.kind != PeerKind::kNoApplication) return handedOver;
  }
  const auto known = token != 0 ? peers().find(pid, token) : std::nullopt;
  return known ? identityOf(known) : handedOver;
}

std::optional<ProcessSerialNumber> serialNumberForPeer(pid_t pid, int executable,
                                                       std::uint32_t token) {
  const PeerIdentity identity = identityOfPeer(pid, -1, executable, token);
  return identity.kind == PeerKind::kApplication ? std::optional(identity.psn) : std::nullopt;
}

std::optional<PropertyListDictionary> dictionaryOfPeer(const ProcessSerialNumber& psn) {
  const std::lock_guard lock(mutexOfPeers());
  const BundleIdentity* const identity = peers().identity(psn);
  return identity != nullptr ? std::optional(dictionaryOf(*identity)) : std::nullopt;
}

OptionalString identifierOfPeer(const ProcessSerialNumber& psn) {
  const std::lock_guard lock(mutexOfPeers());
  const BundleIdentity* const identity = peers().identity(psn);
  return identity != nullptr ? identity->identifier : std::nullopt;
}

}  // namespace clientcomm
