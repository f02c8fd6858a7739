#pragma once

#include <cstdint>

namespace clientcomm {

/// A random number by which this process is known to receivers after a handshake. A
/// forked copy of the process has another one, which it makes at its first use.
/// @param isNew receives whether it was made by this call.
/// @return 0 where the system cannot tell a process from its forked copy.
std::uint32_t processToken(bool& isNew) noexcept;

}  // namespace clientcomm
