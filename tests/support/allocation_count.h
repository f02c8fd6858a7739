#pragma once

#include <cstdint>

namespace support {

/// How often this process has called operator new so far. A test program that asks has its
/// allocation functions replaced by counting ones.
std::uint64_t allocationCount();

}  // namespace support
