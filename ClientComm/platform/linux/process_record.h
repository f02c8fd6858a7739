#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/property_list.h"

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

/// The record of the process `pid`; nothing when there is none, or it belongs to an earlier process
/// of that ID.
std::optional<ProcessRecord> processRecordForPID(pid_t pid);

/// The same of the process `pid` that was started at `startTime`.
std::optional<ProcessRecord> processRecordOf(pid_t pid, std::optional<std::uint64_t> startTime);

/// Whether there is no record of the process `pid`; false also where that could not be told.
bool hasNoProcessRecord(pid_t pid);

/// The record of an open application of another PID namespace that was launched from `bundlePath`:
/// of a process with this start time, or, where that is not known, of the one started last.
std::optional<ProcessRecord> unseenProcessRecord(const std::string& bundlePath,
                                                 std::optional<std::uint64_t> startTime);

/// The record in the file `name` of the runtime folder, whichever process it is of.
std::optional<ProcessRecord> readProcessRecord(int folder, const std::string& name);

/// The record that a file of `bytes` holds; nothing when it holds none.
std::optional<ProcessRecord> processRecordFromBytes(std::string_view bytes);

/// The record that `content` holds; nothing when it holds none.
std::optional<ProcessRecord> processRecordIn(const PropertyListDictionary& content);

/// Whether the record may be of a process in the PID namespace `pidNamespace`; 0 when that is not
/// known.
bool mayBeOfNamespace(const ProcessRecord& record, std::uint64_t pidNamespace) noexcept;

}  // namespace clientcomm
