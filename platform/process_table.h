#pragma once

#include <cstddef>
#include <cstdint>

/// The kernel's process table, in the form in which the BSD interface hands it out.
namespace platform {

// Names of the request for the whole process table.
inline constexpr int CTL_KERN = 1;
inline constexpr int KERN_PROC = 14;
inline constexpr int KERN_PROC_ALL = 0;
/// The same table with the process IDs alone filled in, which takes no look at each process.
inline constexpr int KERN_PROC_ONLY_IDS = 1000;

/// Longest command name that the kernel keeps, without the terminating NUL.
inline constexpr std::size_t MAXCOMLEN = 16;

/// One record of the process table; a plain value, copied as bytes.
struct kinfo_proc {
  struct extern_proc {
    std::int32_t p_pid;          ///< Process ID.
    char p_comm[MAXCOMLEN + 1];  ///< Short command name, NUL-terminated.
  } kp_proc;
  struct eproc {
    struct ucred {
      std::uint32_t cr_uid;  ///< Effective user ID.
    } e_ucred;
  } kp_eproc;
};

/// Reads kernel state by name. Known are { CTL_KERN, KERN_PROC, KERN_PROC_ALL } and
/// { CTL_KERN, KERN_PROC, KERN_PROC_ONLY_IDS }: the process table as an array of `kinfo_proc`. With
/// `oldp` null only the length in bytes is given, with room for a few processes more.
/// @return 0, or -1 with errno set: ENOMEM when `*oldlenp` is too small, ENOENT for an unknown
///         name, EPERM when `newp` is given, or the system's own error.
int sysctl(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp, const void* newp,
           std::size_t newlen) noexcept;

using SysctlFunction = decltype(&sysctl);

/// Puts `function` in the place of the system's table reader (null puts the system's back).
/// For tests that need a table which grows, or a read that fails.
/// @return what was in place before.
SysctlFunction replaceSysctl(SysctlFunction function) noexcept;

}  // namespace platform
