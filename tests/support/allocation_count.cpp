#include "tests/support/allocation_count.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> allocations{0};

void* counted(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

void* countedOrNull(std::size_t size) noexcept {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}

void* countedAligned(std::size_t size, std::align_val_t alignment) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  const auto step = static_cast<std::size_t>(alignment);
  if (void* const memory = std::aligned_alloc(step, (size + step - 1) / step * step)) return memory;
  throw std::bad_alloc();
}

}  // namespace

namespace support {

std::uint64_t allocationCount() { return allocations.load(std::memory_order_relaxed); }

}  // namespace support

void* operator new(std::size_t size) { return counted(size); }
void* operator new[](std::size_t size) { return counted(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return countedOrNull(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return countedOrNull(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return countedAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return countedAligned(size, alignment);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
