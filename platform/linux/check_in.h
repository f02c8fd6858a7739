#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

/// What a process says of itself when it opens to events, so that it is still known after its
/// bundle was removed. It never overrides what the kernel and the bundle on disk say.
namespace platform {

struct CheckInRecord {
  std::uint64_t startTime = 0;  ///< Clock ticks after boot, as /proc/<pid>/stat has it.
  std::string bundleIdentifier;
  std::string bundlePath;
  std::string bundleName;
};

/// Writes the record of this process into the runtime folder, removed when the process exits; clears
/// away the records of processes that are gone. Does nothing outside a bundle, or in a process
/// that has one already.
void checkIn() noexcept;

/// The record of the process `pid`; nothing when there is none, or it belongs to an earlier process
/// of that ID.
std::optional<CheckInRecord> checkInRecordForPID(pid_t pid);

/// When the process `pid` was started, in clock ticks after boot; nothing when there is none.
std::optional<std::uint64_t> processStartTime(pid_t pid) noexcept;

}  // namespace platform
