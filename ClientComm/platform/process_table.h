#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ClientComm/platform/kinfo_proc.h"

/// The kernel's process table, in the form in which the BSD interface hands it out.
namespace clientcomm {

// Names of the request for the whole process table.
inline constexpr int kCtlKern = 1;
inline constexpr int kKernProc = 14;
inline constexpr int kKernProcAll = 0;

/// Reads kernel state by name. Known is { kCtlKern, kKernProc, kKernProcAll }: the process table
/// as an array of `kinfo_proc`. With `oldp` null only the length in bytes is given, with room for a
/// few processes more.
/// @return 0, or -1 with errno set: ENOMEM when `*oldlenp` is too small, ENOENT for an unknown
///         name, EPERM when `newp` is given, or the system's own error.
int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp, const void* newp,
           std::size_t newlen) noexcept;

/// Reads the process table through `sysctl` into one allocation, which its caller frees with
/// free().
/// @return 0, or an errno value, the table being null then.
using ProcessTableReader = int (*)(kinfo_proc** table, std::size_t* count);

/// The process IDs in the table that `read` gives, in its order; none when it gives no table. The
/// system may leave names and users out of that table, where it must look at each process for them.
std::vector<std::int32_t> processIDs(ProcessTableReader read);

/// Those of the processes `wanted` that are in the table. The system may leave all others out, too,
/// and a process of which it cannot tell at once whether it is in the table.
std::vector<std::int32_t> processIDs(ProcessTableReader read,
                                     const std::vector<std::int32_t>& wanted);

using SysctlFunction = decltype(&sysctl);

/// Puts `function` in the place of the system's table reader (null puts the system's back).
/// For tests that need a table which grows, or a read that fails.
/// @return what was in place before.
SysctlFunction replaceSysctl(SysctlFunction function) noexcept;

}  // namespace clientcomm
