#include "ClientComm/platform/posix/property_list_file.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/strings_file.h"

namespace clientcomm {

int readDictionaryFile(const std::string& path, std::optional<PropertyListDictionary>& dictionary) {
  dictionary.reset();
  std::string bytes;
  if (const int error = readSettingsFile(path, bytes); error != 0) return error;
  auto value = propertyListFromBytes(bytes);
  if (value && value->dictionary() != nullptr) dictionary = std::move(*value->dictionary());
  return 0;
}

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  std::optional<PropertyListDictionary> dictionary;
  readDictionaryFile(path, dictionary);
  return dictionary;
}

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path,
                           WriteForm form, mode_t modeOfNew) {
  // A file that cannot be read again would be lost.
  const bool isReadable = std::all_of(dictionary.begin(), dictionary.end(), [](const auto& entry) {
    return isNestedWithinLimit(entry.second, 1);
  });
  if (!isReadable) return false;
  const std::string xml = xmlPropertyList(dictionary);
  return xml.size() <= kMaximumSettingsFileSize &&
         writeSettingsFile(path, xml, form, modeOfNew) == 0;
}

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path) {
  return writeDictionaryToFile(dictionary, path, WriteForm::kInPlace, 0666);
}

bool writeTextToFileAsUTF16(std::string_view text, const std::string& path) {
  const std::string bytes = utf16FromUtf8(text);
  return bytes.size() <= kMaximumSettingsFileSize &&
         writeSettingsFile(path, bytes, WriteForm::kInPlace, 0666) == 0;
}

}  // namespace clientcomm
