#pragma once

#include <cstddef>
#include <cstdint>

namespace clientcomm {

/// Longest command name that the kernel keeps, without the terminating NUL.
inline constexpr std::size_t kMaximumCommandLength = 16;

/// One record of the process table; a plain value, copied as bytes.
struct kinfo_proc {
  struct extern_proc {
    std::int32_t p_pid;                      ///< Process ID.
    char p_comm[kMaximumCommandLength + 1];  ///< Short command name, NUL-terminated.
  } kp_proc;
  struct eproc {
    struct ucred {
      std::uint32_t cr_uid;  ///< Effective user ID.
    } e_ucred;
  } kp_eproc;
};

}  // namespace clientcomm
