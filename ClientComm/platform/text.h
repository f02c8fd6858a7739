#pragma once

#include <cstdint>
#include <string_view>

#include "ClientComm/platform/export.h"

/// Readings of text that the library and its peers agree on. None of them throws on any input.
namespace clientcomm {

/// The lenient reading of a signed 32-bit integer: leading blanks, an optional sign, decimal digits
/// up to the first other character. 0 when there are none; a value out of range saturates.
CLIENTCOMM_EXPORT std::int32_t intValue(std::string_view text) noexcept;

/// The lenient reading of a truth value: true when the text begins, after optional blanks, an
/// optional sign and leading zeros, with Y, y, T, t or a digit 1 to 9.
CLIENTCOMM_EXPORT bool boolValue(std::string_view text) noexcept;

}  // namespace clientcomm
