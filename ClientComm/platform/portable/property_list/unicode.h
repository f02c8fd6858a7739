#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace clientcomm {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// A byte that is not part of UTF-8 (0x80 to 0xFF) is written into a strings file as the escape of
/// this low surrogate plus the byte, alone: \UDCFF stands for 0xFF.
inline constexpr char32_t kFirstByteSurrogate = 0xDC00;

constexpr bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
constexpr bool isByteSurrogate(char32_t unit) {
  return unit >= kFirstByteSurrogate + 0x80 && unit <= kFirstByteSurrogate + 0xFF;
}
constexpr char32_t joinedSurrogates(char32_t high, char32_t low) {
  return 0x10000 + ((high - 0xD800) << 10U) + (low - 0xDC00);
}

/// Appends `character`, which is a code point.
void appendUtf8(std::string& text, char32_t character);

/// Whether `text` is well-formed UTF-8.
bool isUtf8(std::string_view text);

enum class ByteOrder { kLittleEndian, kBigEndian };

/// The UTF-8 form of UTF-16 `bytes` (without byte-order mark). Nothing when it is ill-formed.
std::optional<std::string> utf8FromUtf16(std::string_view bytes, ByteOrder order);

/// The UTF-16 form of UTF-8 `text`, little-endian with byte-order mark.
std::string utf16FromUtf8(std::string_view text);

}  // namespace clientcomm
