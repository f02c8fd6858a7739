#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "ClientComm/platform/process_table.h"

/// The texts in which the kernel describes a process under /proc, read. A process chooses part of
/// each itself, so none is taken to be well-formed.
namespace clientcomm {

/// When the process was started, in clock ticks after boot, by the text of its "stat"; nothing when
/// the text is cut short or malformed.
std::optional<std::uint64_t> startTimeInStat(std::string_view stat) noexcept;

/// The process ID of the parent, by the text of the process's "stat"; 0 when the text is cut short
/// or malformed.
std::int32_t parentInStat(std::string_view stat) noexcept;

/// Whether the process has IDs in several PID namespaces, by the text of its "status"; true also
/// where the text is cut short before it says so.
bool mayHaveInnerPID(std::string_view status) noexcept;

/// Copies the command's name in the text of its "comm" into `name`, cut to the room there is.
void copyCommandName(std::string_view comm, char (&name)[kMaximumCommandLength + 1]) noexcept;

/// Path of the bundle X.app whose executable is at `path`, a part of `path`; empty when there is
/// none.
std::string_view bundleOfExecutable(std::string_view path) noexcept;

}  // namespace clientcomm
