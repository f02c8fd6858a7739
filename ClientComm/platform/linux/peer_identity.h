#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "ClientComm/platform/process_manager.h"

namespace clientcomm {

/// What can be told of the process at the other end of a connection.
enum class PeerKind {
  kApplication,    ///< It runs an application, which has a serial number.
  kNoApplication,  ///< It runs an executable outside any application bundle.
  kUnknown,        ///< What it runs, or ran, cannot be told.
};

struct PeerIdentity {
  PeerKind kind = PeerKind::kUnknown;
  ProcessSerialNumber psn;  ///< Of an application.
};

/// Decides who sent an event, by what came with it other than its body. A peer that runs an
/// application is remembered, so that `ProcessInformationCopyDictionary` can be asked for it.
///
/// The executable that the kernel reports for the process decides. For a process whose events carry
/// the `token` of the last look-up, the kernel is asked once a second: only that process and its
/// receivers know the token, not another program that the process executes. Where the kernel does
/// not tell (the process has exited, is in a process-ID namespace that is not seen from here, or
/// its executable may not be looked at), the executable counts that the process handed over with
/// this event, or with an earlier one with the same token.
/// @param pid the process ID in the credentials of the connection; 0 when it is not seen from here.
/// @param socket the connection, or -1: with it, a later process with the same ID is never taken
///        for the peer where the kernel has SO_PEERPIDFD.
/// @param executable the executable that came open with the event, or -1.
/// @param token the token of the event, or 0.
PeerIdentity identityOfPeer(pid_t pid, int socket, int executable, std::uint32_t token);

/// The serial number of the process `pid`, by its ID alone.
/// @return nothing when it runs no application, or what it runs cannot be told.
std::optional<ProcessSerialNumber> serialNumberForPeer(pid_t pid, int executable,
                                                       std::uint32_t token = 0);

/// What is known of a remembered peer, as `ProcessInformationCopyDictionary` says it.
std::optional<PropertyListDictionary> dictionaryOfPeer(const ProcessSerialNumber& psn);

/// The bundle identifier of a remembered peer.
OptionalString identifierOfPeer(const ProcessSerialNumber& psn);

}  // namespace clientcomm
