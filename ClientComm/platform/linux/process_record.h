#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/status.h"

/// What a process says of itself when it opens to events, so that it is still known after its
/// bundle was removed. It never overrides what the kernel and the bundle on disk say.
namespace clientcomm {

struct ProcessRecord {
  std::uint64_t startTime = 0;  ///< Clock ticks after boot, as /proc/<pid>/stat has it.
  std::string bundleIdentifier;
  std::string bundlePath;
  std::string bundleName;
  bool isOpen = false;             ///< False while only the launcher has written the record.
  bool isTool = false;             ///< Another program beside the bundle's executable.
  std::uint64_t pidNamespace = 0;  ///< Inode of the process's PID namespace; 0 when unknown.
};

/// Writes the record of this process into the runtime folder, removed when the process exits;
/// clears stale files there, and removes the record of this process's launch. Does nothing outside
/// a bundle, or where the record is in place. Without a record, a process is known until its bundle
/// is removed.
Status recordOwnProcess() noexcept;

/// Writes a first record of the process `pid`, which has just been launched from `bundle` (an
/// absolute path), so that it is known although the bundle is removed before the process opens to
/// events. Never replaces one, which is EEXIST.
Status recordLaunchedProcess(pid_t pid, const Bundle& bundle) noexcept;

/// The record of the process `pid`; nothing when there is none, or it belongs to an earlier process
/// of that ID.
std::optional<ProcessRecord> processRecordForPID(pid_t pid);

/// The record in the file `name` of the runtime folder, whichever process it is of.
std::optional<ProcessRecord> readProcessRecord(int folder, const std::string& name);

/// The record that a file of `bytes` holds; nothing when it holds none.
std::optional<ProcessRecord> processRecordFromBytes(std::string_view bytes);

/// Whether the record may be of a process in the PID namespace `pidNamespace`; 0 when that is not
/// known.
bool mayBeOfNamespace(const ProcessRecord& record, std::uint64_t pidNamespace) noexcept;

}  // namespace clientcomm
