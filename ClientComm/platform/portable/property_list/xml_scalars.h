#pragma once

#include <optional>
#include <string_view>

#include "ClientComm/platform/property_list.h"

/// The values that XML elements hold as text. Nothing is repaired: text that is not wholly of the
/// form has no value.
namespace clientcomm {

/// A decimal integer, or one in hexadecimal after "0x", with optional sign and blanks around.
/// Leading zeros mean nothing. Nothing when it does not fit 64 bits.
std::optional<PropertyListValue> integerFromText(std::string_view text);

/// A decimal real with optional sign and exponent and blanks around, or "nan", "inf", "infinity" in
/// any case. Nothing when a double cannot hold it.
std::optional<PropertyListValue> realFromText(std::string_view text);

/// A date of the form 2001-01-31T23:59:59Z; the year is 0001 to 9999.
std::optional<PropertyListValue> dateFromText(std::string_view text);

}  // namespace clientcomm
