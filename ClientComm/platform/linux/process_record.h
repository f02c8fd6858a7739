#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/process_stat.h"

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
/// removes the records of processes that are gone, the unfinished records and sockets of those that
/// were killed meanwhile, and the record of this process's launch. Does nothing outside a bundle,
/// or where the record is in place.
void recordOwnProcess() noexcept;

/// Writes a first record of the process `pid`, which has just been launched from `bundle` (an
/// absolute path), so that it is known although the bundle is removed before the process opens to
/// events. Never replaces one.
void recordLaunchedProcess(pid_t pid, const Bundle& bundle) noexcept;

/// The record of the process `pid`; nothing when there is none, or it belongs to an earlier process
/// of that ID.
std::optional<ProcessRecord> processRecordForPID(pid_t pid);

/// The record that a file of `bytes` holds; nothing when it holds none.
std::optional<ProcessRecord> processRecordFromBytes(std::string_view bytes);

/// The process that the file called `name` in the runtime folder is the record of, or the draft of
/// one; 0 when it is neither.
pid_t processOfRecordName(std::string_view name) noexcept;

/// The process that made the file called `name` in the runtime folder on its way to another name:
/// an endpoint's socket, or the draft of a record; 0 when it is neither.
pid_t processOfTemporaryName(std::string_view name) noexcept;

}  // namespace clientcomm
