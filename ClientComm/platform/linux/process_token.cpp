#include "ClientComm/platform/linux/process_token.h"

#include <sys/mman.h>
#include <sys/random.h>

#include <cstddef>

namespace clientcomm {
namespace {

// Memory that the kernel clears in a forked copy of the process. That costs nothing to look at,
// other than asking for the process ID with every event.
std::uint32_t* memoryOfThisProcess() noexcept {
  constexpr std::size_t kSize = sizeof(std::uint32_t);
  void* const memory =
      mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  if (madvise(memory, kSize, MADV_WIPEONFORK) == 0) return static_cast<std::uint32_t*>(memory);
  munmap(memory, kSize);
  return nullptr;
}

}  // namespace

std::uint32_t processToken(bool& isNew) noexcept {
  static std::uint32_t* const token = memoryOfThisProcess();
  isNew = token != nullptr && *token == 0;
  if (token == nullptr) return 0;
  if (isNew && getrandom(token, sizeof *token, GRND_NONBLOCK) != sizeof *token) *token = 0;
  return *token;
}

}  // namespace clientcomm
