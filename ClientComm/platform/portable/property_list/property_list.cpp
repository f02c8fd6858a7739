#include "ClientComm/platform/property_list.h"

#include <algorithm>
#include <array>

#include "ClientComm/platform/portable/property_list/binary_reader.h"
#include "ClientComm/platform/portable/property_list/strings_writer.h"
#include "ClientComm/platform/portable/property_list/text_reader.h"
#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/portable/property_list/xml_reader.h"
#include "ClientComm/platform/portable/property_list/xml_writer.h"

namespace clientcomm {
namespace {

using namespace std::literals;  // of texts

// Not every "<": an old-style list of data begins with one too.
bool beginsXml(std::string_view text) {
  constexpr std::array kBeginnings = {"<?"sv, "<!"sv, "<plist"sv, "<dict"sv, "<array"sv};
  return std::ranges::any_of(
      kBeginnings, [text](std::string_view beginning) { return text.starts_with(beginning); });
}

std::optional<PropertyListValue> propertyListIn(std::string_view text, XmlEncoding encoding) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  const std::string_view body = start == std::string_view::npos ? ""sv : text.substr(start);
  return beginsXml(body) ? propertyListFromXml(body, encoding) : propertyListFromText(text);
}

// A byte-order mark, and the "<?" of XML without one, show UTF-16.
std::optional<ByteOrder> utf16ByteOrder(std::string_view bytes) {
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("<\0?\0"sv)) {
    return ByteOrder::kLittleEndian;
  }
  if (bytes.starts_with("\xFE\xFF") || bytes.starts_with("\0<\0?"sv)) return ByteOrder::kBigEndian;
  return std::nullopt;
}

}  // namespace

std::optional<PropertyListValue> propertyListFromBytes(std::string_view bytes) {
  constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
  if (bytes.empty() || bytes.size() > kMaximumSettingsFileSize) return std::nullopt;
  if (bytes.starts_with("bplist0")) return propertyListFromBinary(bytes);
  std::optional<std::string> text;
  if (const auto order = utf16ByteOrder(bytes)) {
    text = utf8FromUtf16(bytes, *order);
    if (!text) return std::nullopt;
    bytes = *text;
  }
  // What the bytes show overrules what the XML declares.
  const bool hasMark = bytes.starts_with(kUtf8Mark);
  if (hasMark) bytes.remove_prefix(kUtf8Mark.size());
  return propertyListIn(bytes, hasMark || text ? XmlEncoding::kUtf8 : XmlEncoding::kDeclared);
}

std::string xmlPropertyList(const PropertyListDictionary& dictionary) {
  return propertyListToXml(dictionary);
}

std::string descriptionInStringsFileFormat(const PropertyListDictionary& dictionary) {
  return stringsFileText(dictionary);
}

}  // namespace clientcomm
