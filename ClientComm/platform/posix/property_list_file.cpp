#include "ClientComm/platform/posix/property_list_file.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/strings_file.h"

namespace clientcomm {

Status readDictionaryFile(const std::string& path,
                          std::optional<PropertyListDictionary>& dictionary) {
  dictionary.reset();
  std::string bytes;
  if (Status read = readSettingsFile(path, bytes); !read.isOk()) return read;
  auto value = propertyListFromBytes(bytes);
  if (value && value->dictionary() != nullptr) dictionary = std::move(*value->dictionary());
  return {};
}

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  std::optional<PropertyListDictionary> dictionary;
  readDictionaryFile(path, dictionary).ignore();  // the caller takes it like a malformed file
  return dictionary;
}

Status writeDictionaryFile(const PropertyListDictionary& dictionary, const std::string& path,
                           WriteForm form, mode_t modeOfNew) {
  // A file that cannot be read again would be lost.
  const bool isReadable = std::all_of(dictionary.begin(), dictionary.end(), [](const auto& entry) {
    return isNestedWithinLimit(entry.second, 1);
  });
  if (!isReadable) return Status::ofFile(EFBIG, "isNestedWithinLimit", path);
  const std::string xml = xmlPropertyList(dictionary);
  if (xml.size() > kMaximumSettingsFileSize) {
    return Status::ofFile(EFBIG, "xmlPropertyList", path);
  }
  return writeSettingsFile(path, xml, form, modeOfNew);
}

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path) {
  return writeDictionaryFile(dictionary, path, WriteForm::kInPlace, 0666).isOk();
}

Status writeTextToFileAsUTF16(std::string_view text, const std::string& path) {
  const std::string bytes = utf16FromUtf8(text);
  if (bytes.size() > kMaximumSettingsFileSize) return Status::ofFile(EFBIG, "utf16FromUtf8", path);
  return writeSettingsFile(path, bytes, WriteForm::kInPlace, 0666);
}

}  // namespace clientcomm
