#pragma once

#include <cstddef>
#include <cstdint>

namespace clientcomm {

/// Longest command name that the kernel keeps, without the terminating NUL.
inline constexpr std::size_t kMaximumCommandLength = 16;

/// One record of the process table; a plain value, copied as bytes.
struct kinfo_proc {
  /// What the process is.
  struct extern_proc {
    std::int32_t p_pid;                      ///< Process ID.
    char p_comm[kMaximumCommandLength + 1];  ///< Short command name, NUL-terminated.
  } kp_proc;                                 ///< What the process is.
  /// Whose the process is.
  struct eproc {
    /// The rights of the process.
    struct ucred {
      std::uint32_t cr_uid;  ///< Effective user ID.
    } e_ucred;               ///< The rights of the process.
  } kp_eproc;                ///< Whose the process is.
};

}  // namespace clientcomm
