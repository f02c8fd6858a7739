#include "ClientComm/platform/portable/property_list/unicode.h"

#include <cstddef>

#include "ClientComm/platform/characters.h"

namespace clientcomm {

void appendUtf8(std::string& text, char32_t character) {
  const auto appendBits = [&text](char32_t marker, char32_t bits) {
    text += static_cast<char>(marker | bits);
  };
  if (character < 0x80) {
    appendBits(0, character);
    return;
  }
  if (character < 0x800) {
    appendBits(0xC0, character >> 6U);
  } else {
    if (character < 0x10000) {
      appendBits(0xE0, character >> 12U);
    } else {
      appendBits(0xF0, character >> 18U);
      appendBits(0x80, character >> 12U & 0x3FU);
    }
    appendBits(0x80, character >> 6U & 0x3FU);
  }
  appendBits(0x80, character & 0x3FU);
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = text.size();
    if (takeCharacter(text) == kReplacementCharacter && size - text.size() == 1) return false;
  }
  return true;
}

std::optional<std::string> utf8FromUtf16(std::string_view bytes, ByteOrder order) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  std::string text;
  text.reserve(bytes.size());
  char32_t high = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    const char32_t first = static_cast<unsigned char>(bytes[i]);
    const char32_t second = static_cast<unsigned char>(bytes[i + 1]);
    const char32_t unit =
        order == ByteOrder::kBigEndian ? (first << 8U | second) : (second << 8U | first);
    if (isLowSurrogate(unit) != (high != 0)) return std::nullopt;
    if (isHighSurrogate(unit)) {
      high = unit;
      continue;
    }
    appendUtf8(text, high == 0 ? unit : joinedSurrogates(high, unit));
    high = 0;
  }
  if (high != 0) return std::nullopt;
  return text;
}

std::string utf16FromUtf8(std::string_view text) {
  std::string bytes = "\xFF\xFE";
  bytes.reserve(2 + 2 * text.size());
  const auto append = [&bytes](char32_t unit) {
    bytes += static_cast<char>(unit & 0xFFU);
    bytes += static_cast<char>(unit >> 8U);
  };
  while (!text.empty()) {
    const char32_t character = takeCharacter(text);
    if (character > 0xFFFF) {
      append(0xD800 + ((character - 0x10000) >> 10U));
      append(0xDC00 + ((character - 0x10000) & 0x3FFU));
    } else {
      append(character);
    }
  }
  return bytes;
}

}  // namespace clientcomm
