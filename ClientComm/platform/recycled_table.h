#pragma once

#include <cstddef>

namespace clientcomm {

/// Memory for a table of `size` bytes, aligned for any type. Throws std::bad_alloc.
///
/// One table of up to 8 KiB is kept for the next one, so that a process that handles call after
/// call does not allocate one each time: for an allocation above 1 KiB the C library merges all
/// small blocks that were freed before. Any thread may call it.
void* allocateTable(std::size_t size);

/// Frees what `allocateTable` returned for `size`, or keeps it.
void freeTable(void* table, std::size_t size) noexcept;

/// The allocator of a vector that is made for each call.
template <typename Value>
struct RecyclingAllocator {
  using value_type = Value;

  RecyclingAllocator() noexcept = default;
  template <typename Other>
  explicit RecyclingAllocator(const RecyclingAllocator<Other>& /*other*/) noexcept {}

  Value* allocate(std::size_t count) {
    return static_cast<Value*>(allocateTable(count * sizeof(Value)));
  }
  void deallocate(Value* table, std::size_t count) noexcept {
    freeTable(table, count * sizeof(Value));
  }

  friend bool operator==(const RecyclingAllocator& /*a*/, const RecyclingAllocator& /*b*/) {
    return true;
  }
};

}  // namespace clientcomm
