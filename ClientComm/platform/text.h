#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/export.h"

/// Readings of text that the library and its peers agree on. None of them throws on any input.
namespace clientcomm {

/// Length of `text` in UTF-16 units. A byte that is not part of well-formed UTF-8 counts as one.
std::size_t utf16Length(std::string_view text) noexcept;

/// Takes the character at the front of `text` off it, without allocating.
/// @return its code point; U+FFFD for a byte that is not part of well-formed UTF-8 (one byte is
///         taken then). `text` must not be empty.
char32_t takeCharacter(std::string_view& text) noexcept;

/// Whether the UTF-16 unit is in the platform's decimal-digit set (Unicode category Nd).
bool isDecimalDigit(char16_t unit) noexcept;

/// The lenient reading of a signed 32-bit integer: leading blanks, an optional sign, decimal digits
/// up to the first other character. 0 when there are none; a value out of range saturates.
CLIENTCOMM_EXPORT std::int32_t intValue(std::string_view text) noexcept;

/// The lenient reading of a truth value: true when the text begins, after optional blanks, an
/// optional sign and leading zeros, with Y, y, T, t or a digit 1 to 9.
CLIENTCOMM_EXPORT bool boolValue(std::string_view text) noexcept;

}  // namespace clientcomm
