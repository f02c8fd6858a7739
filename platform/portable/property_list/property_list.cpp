#include "platform/property_list.h"

#include "platform/portable/property_list/binary_reader.h"
#include "platform/portable/property_list/text_reader.h"
#include "platform/portable/property_list/unicode.h"
#include "platform/portable/property_list/value.h"
#include "platform/portable/property_list/xml_reader.h"

namespace platform {
namespace {

using namespace std::literals;  // of texts

std::optional<PropertyListValue> propertyListFromUtf8(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  const std::string_view body = start == std::string_view::npos ? ""sv : text.substr(start);
  if (body.starts_with("<?") || body.starts_with("<!") || body.starts_with("<plist")) {
    return propertyListFromXml(body);
  }
  return propertyListFromText(text);
}

}  // namespace

std::optional<PropertyListValue> propertyListFromBytes(std::string_view bytes) {
  if (bytes.size() > kMaximumSettingsFileSize) return std::nullopt;
  if (bytes.starts_with("bplist0")) return propertyListFromBinary(bytes);
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) {
    const auto text = utf8FromUtf16(bytes.substr(2), bytes.starts_with("\xFE"));
    return text ? propertyListFromUtf8(*text) : std::nullopt;
  }
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  return propertyListFromUtf8(bytes);
}

}  // namespace platform
