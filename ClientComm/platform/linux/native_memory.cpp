#include "ClientComm/platform/native_memory.h"

#include <sys/mman.h>

#include <cstdint>

namespace clientcomm {

void preferLargePages(char* memory, std::size_t size) noexcept {
  constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20U;
  const auto begin = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t first = (begin + kLargePage - 1) / kLargePage * kLargePage;
  const std::uintptr_t end = (begin + size) / kLargePage * kLargePage;
  if (end > first) madvise(memory + (first - begin), end - first, MADV_HUGEPAGE);
}

}  // namespace clientcomm
