#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>

/// What the kernel tells of a process in /proc/<pid>.
namespace clientcomm {

/// When the process `pid` was started, in clock ticks after boot; nothing when there is none.
std::optional<std::uint64_t> processStartTime(pid_t pid) noexcept;

/// The parent of the process `pid`; 0 when there is none.
pid_t parentOfProcess(pid_t pid) noexcept;

/// Whether the process has another ID in a PID namespace of its own; true also where that cannot be
/// told.
bool mayHaveInnerPID(pid_t pid) noexcept;

/// The PID namespace of this process, by its inode; 0 when it cannot be told.
std::uint64_t ownPIDNamespace() noexcept;

/// Time since boot, suspension included.
std::chrono::milliseconds timeSinceBoot() noexcept;

/// How long ago a process was started that has this start time.
std::chrono::milliseconds ageByStartTime(std::uint64_t startTime) noexcept;

}  // namespace clientcomm
