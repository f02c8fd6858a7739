// A property list or a strings file, of any form: read, written as XML and as a strings file, and
// read again.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/portable/property_list/xml_text.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/strings_file.h"
#include "fuzz/fuzz.h"
#include "fuzz/property_lists.h"

namespace {

using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using fuzz::require;

void requireReadBackFromXml(const PropertyListDictionary& dictionary) {
  const std::string xml = clientcomm::xmlPropertyList(dictionary);
  if (xml.size() > clientcomm::kMaximumSettingsFileSize) return;
  require(clientcomm::isXmlText(xml), "what is written as XML holds what XML can hold");
  const auto again = clientcomm::propertyListFromBytes(xml);
  require(again.has_value(), "what is written as XML can be read");
  require(fuzz::asReadFromXml(*again) == fuzz::asReadFromXml(dictionary), "XML keeps every value");
}

void requireReadBackFromStringsFile(const PropertyListDictionary& dictionary) {
  if (dictionary.empty()) return;  // has no text, and no text is no list
  const std::string text = clientcomm::descriptionInStringsFileFormat(dictionary);
  const auto again = clientcomm::propertyListFromBytes(text);
  require(clientcomm::isUtf8(text), "a strings file is UTF-8, and so has a form in UTF-16");
  require(again.has_value(), "what is written as strings file can be read");
  require(again->dictionary() != nullptr && again->dictionary()->size() == dictionary.size(),
          "a strings file has all entries");
  require(clientcomm::descriptionInStringsFileFormat(*again->dictionary()) == text,
          "writing what was read from a strings file changes nothing");
  const std::string path = fuzz::privateFolder() + "/Table.strings";
  require(clientcomm::writeTextToFileAsUTF16(text, path).isOk(), "a strings file can be written");
  require(clientcomm::dictionaryWithContentsOfFile(path) == *again->dictionary(),
          "a strings file is the same in UTF-16");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::privateFolder();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto value = clientcomm::propertyListFromBytes({reinterpret_cast<const char*>(data), size});
  if (!value) return 0;
  require(value->stringValue().has_value() == std::holds_alternative<std::string>(value->variant()),
          "only a string has the value of one");
  const fuzz::Measure measure = fuzz::measureOf(*value);
  require(measure.depth <= clientcomm::kMaximumPropertyListNesting + 1, "the nesting is bounded");
  // A small binary list can unfold into one that takes long to write.
  if (measure.count > 20'000) return 0;
  PropertyListDictionary dictionary;
  if (value->dictionary() != nullptr) {
    dictionary = std::move(*value->dictionary());
  } else if (measure.depth <= clientcomm::kMaximumPropertyListNesting) {
    dictionary.emplace("value", std::move(*value));
  }
  requireReadBackFromXml(dictionary);
  requireReadBackFromStringsFile(dictionary);
  return 0;
}
