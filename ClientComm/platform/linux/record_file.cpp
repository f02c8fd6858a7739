#include "ClientComm/platform/linux/record_file.h"

#include <utility>

#include "ClientComm/platform/linux/runtime_file.h"

namespace clientcomm {

std::optional<PropertyListDictionary> readRecordFile(int folder, const std::string& name) {
  std::string bytes;
  if (!readRuntimeFile(folder, name, bytes).isOk()) return std::nullopt;
  auto list = propertyListFromBytes(bytes);
  if (!list || list->dictionary() == nullptr) return std::nullopt;
  return std::move(*list->dictionary());
}

void keepUnknownKeys(PropertyListDictionary earlier, std::span<const RecordKey> known,
                     PropertyListDictionary& record) {
  for (const std::string_view key : known) {
    if (const auto entry = earlier.find(key); entry != earlier.end()) earlier.erase(entry);
  }
  record.merge(earlier);
}

}  // namespace clientcomm
