#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "platform/process_manager.h"

namespace platform {

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

}  // namespace platform
