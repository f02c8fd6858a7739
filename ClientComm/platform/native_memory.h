#pragma once

#include <cstddef>

namespace clientcomm {

/// Asks the system to back the `size` bytes at `memory` with large pages, where it has them on
/// request. Only whole large pages inside the range are affected; a hint, which may be ignored.
void preferLargePages(char* memory, std::size_t size) noexcept;

}  // namespace clientcomm
