#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "platform/process_manager.h"

namespace platform {

/// Serial numbers of running processes have the lower bits of the start time in their high half;
/// those of remembered peers have this bit set there and a running number.
inline constexpr std::uint32_t kPeerBit = 0x80000000;

/// The serial number of the process at the other end of a connection, remembered so that
/// `ProcessInformationCopyDictionary` can be asked for it.
///
/// What counts is the kernel's word: the executable that the process `pid` runs. Of a process whose
/// events bear the `token` (0 for none) that came when the kernel was asked last, it is asked for
/// once a second: only that process and those it sent to know the token, not another program that
/// the process executes. Where the process has ended already (a caller that sends and exits at
/// once), the executable counts which it handed over open with its event, `executable` (-1 for
/// none), or with an earlier event that bore the same token.
/// @return nothing when the executable lies in no application bundle, or cannot be told.
std::optional<ProcessSerialNumber> serialNumberForPeer(pid_t pid, int executable,
                                                       std::uint32_t token = 0);

/// What is known of a remembered peer, as `ProcessInformationCopyDictionary` says it.
std::optional<PropertyListDictionary> dictionaryOfPeer(const ProcessSerialNumber& psn);

/// The bundle identifier of a remembered peer.
OptionalString identifierOfPeer(const ProcessSerialNumber& psn);

}  // namespace platform
