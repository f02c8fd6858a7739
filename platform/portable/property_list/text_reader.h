#pragma once

#include <optional>
#include <string_view>

#include "platform/property_list.h"

namespace platform {

/// Reads an old-style text property list, or the text of a strings file, which is the inside of a
/// dictionary. `text` is UTF-8 without byte-order mark; text of nothing but blanks and comments is
/// an empty dictionary. Nothing when it is malformed.
std::optional<PropertyListValue> propertyListFromText(std::string_view text);

}  // namespace platform
