#include "ClientComm/c/handles.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "ClientComm/platform/shared_object.h"

namespace clientcomm {
namespace {

struct Entry {
  std::uintptr_t number;
  Handled* object;
};

/// In the order of the numbers, since each new one is the greatest.
struct Table {
  Table() = default;
  ~Table() {
    for (const Entry& entry : entries) delete entry.object;
  }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  std::vector<Entry> entries;
};

std::vector<Entry>& entries() {
  static SharedObject<Table> table;
  return table.get().entries;
}

std::vector<Entry>::iterator entryOf(const void* handle) {
  const auto number = reinterpret_cast<std::uintptr_t>(handle);
  const auto found = std::lower_bound(
      entries().begin(), entries().end(), number,
      [](const Entry& entry, std::uintptr_t wanted) { return entry.number < wanted; });
  return found != entries().end() && found->number == number ? found : entries().end();
}

}  // namespace

void* Handles::add(Handled& object) {
  static std::uintptr_t last = 0;
  entries().push_back({last + 1, &object});
  return reinterpret_cast<void*>(++last);  // NOLINT(performance-no-int-to-ptr): never dereferenced
}

Handled& Handles::find(const void* handle, Handled::Kind kind) {
  if (handle == nullptr) throw Refusal{CLIENTCOMM_BAD_ARGUMENT};
  const auto entry = entryOf(handle);
  if (entry == entries().end() || entry->object->kind_ != kind) {
    throw Refusal{CLIENTCOMM_STALE_HANDLE};
  }
  return *entry->object;
}

void Handles::remove(const void* handle) noexcept {
  const auto entry = entryOf(handle);
  if (entry != entries().end()) entries().erase(entry);
}

void Handles::release(const void* handle, Handled::Kind kind) {
  Handled& object = find(handle, kind);
  // Before it is deleted, which may run the program's code.
  remove(handle);
  object.isReleased_ = true;
  const InUse lastUse(object);
}

void Handles::forEach(Handled::Kind kind, void (*use)(Handled& object)) {
  for (const Entry& entry : entries()) {
    if (entry.object->kind_ == kind) use(*entry.object);
  }
}

}  // namespace clientcomm
