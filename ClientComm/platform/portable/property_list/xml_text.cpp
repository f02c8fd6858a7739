#include "ClientComm/platform/portable/property_list/xml_text.h"

#include <charconv>
#include <cstddef>

#include "ClientComm/platform/characters.h"
#include "ClientComm/platform/portable/property_list/unicode.h"

namespace clientcomm {
namespace {

// Takes the character at the front of `text` off it. @return whether XML can hold it.
bool takeXmlCharacter(std::string_view& text) {
  const std::size_t size = text.size();
  const char32_t character = takeCharacter(text);
  const bool isWellFormed = character != kReplacementCharacter || size - text.size() > 1;
  if (character < 0x20) return isXmlBlank(static_cast<char>(character));
  return isWellFormed && character != 0xFFFE && character != 0xFFFF;
}

}  // namespace

bool isXmlText(std::string_view text) {
  while (!text.empty()) {
    if (!takeXmlCharacter(text)) return false;
  }
  return true;
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string result;
  while (!text.empty()) {
    const std::string_view before = text;
    const bool isHeld = takeXmlCharacter(text);
    const std::string_view character = before.substr(0, before.size() - text.size());
    if (isHeld && character != "%") {
      result += character;
      continue;
    }
    for (const char c : character) {
      const auto byte = static_cast<unsigned char>(c);
      result.append({'%', kDigits[byte >> 4U], kDigits[byte & 0x0FU]});
    }
  }
  return result;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = text.find('%');
    result += text.substr(0, length);
    if (length == std::string_view::npos) return result;
    const std::string_view digits = text.substr(length + 1, 2);
    const char* const end = digits.data() + digits.size();
    unsigned byte = 0;
    if (digits.size() != 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end) {
      return std::nullopt;
    }
    result += static_cast<char>(byte);
    text.remove_prefix(length + 3);
  }
  return result;
}

}  // namespace clientcomm
