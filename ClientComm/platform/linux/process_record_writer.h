#pragma once

#include <sys/types.h>

#include <string>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/status.h"

/// Writing process records (process_record.h).
namespace clientcomm {

/// Writes the record of this process into the runtime folder, removed when the process exits;
/// clears stale files there, and removes the record of this process's launch. Does nothing outside
/// a bundle, or where the record is in place. Without a record, a process is known until its bundle
/// is removed.
Status recordOwnProcess() noexcept;

/// The name, in the runtime folder, of the record that `recordOwnProcess` wrote last; empty when it
/// has written none.
std::string nameOfOwnRecord();

/// Writes a first record of the process `pid`, which has just been launched from `bundle` (an
/// absolute path), so that it is known although the bundle is removed before the process opens to
/// events. Never replaces one, which is EEXIST.
Status recordLaunchedProcess(pid_t pid, const Bundle& bundle) noexcept;

}  // namespace clientcomm
