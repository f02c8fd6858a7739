#include "ClientComm/platform/property_list.h"

#include <algorithm>
#include <cerrno>

#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/strings_file.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

Status writeBytes(const std::string& path, std::string_view bytes) {
  if (bytes.size() > kMaximumSettingsFileSize) return Status::ofFile(EFBIG, "write", path);
  return Status::ofFile(support::MemorySystem::current().files.write(path, bytes), "write", path);
}

}  // namespace

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  const auto* const file = support::MemorySystem::current().files.file(path);
  auto value = file == nullptr ? std::nullopt : propertyListFromBytes(file->bytes);
  if (!value || value->dictionary() == nullptr) return std::nullopt;
  return std::move(*value->dictionary());
}

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path) {
  const bool isReadable = std::all_of(dictionary.begin(), dictionary.end(), [](const auto& entry) {
    return isNestedWithinLimit(entry.second, 1);
  });
  return isReadable && writeBytes(path, xmlPropertyList(dictionary)).isOk();
}

Status writeTextToFileAsUTF16(std::string_view text, const std::string& path) {
  return writeBytes(path, utf16FromUtf8(text));
}

}  // namespace clientcomm
