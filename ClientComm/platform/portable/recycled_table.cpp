#include "ClientComm/platform/recycled_table.h"

#include <atomic>
#include <new>

namespace clientcomm {
namespace {

// The C library gives smaller blocks without merging others.
constexpr std::size_t kSmallSize = 1000;

constexpr std::size_t kLargestSpare = std::size_t{8} << 10;

/// The table that was freed last. It begins with its size. Other threads may outlive it.
struct Spare {
  ~Spare() { ::operator delete(table.exchange(nullptr)); }

  std::atomic<std::size_t*> table;
};

Spare spare;

bool isRecycled(std::size_t size) { return size > kSmallSize && size <= kLargestSpare; }

}  // namespace

void* allocateTable(std::size_t size) {
  if (!isRecycled(size)) return ::operator new(size);
  std::size_t* const table = spare.table.exchange(nullptr);
  if (table != nullptr && *table >= size) return table;
  ::operator delete(table);
  return ::operator new(size);
}

void freeTable(void* table, std::size_t size) noexcept {
  if (isRecycled(size)) table = spare.table.exchange(new (table) std::size_t(size));
  ::operator delete(table);
}

}  // namespace clientcomm
