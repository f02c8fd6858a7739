#pragma once

#include <optional>
#include <string_view>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// Reads an old-style text property list, or the text of a strings file, which is the inside of a
/// dictionary. `text` is UTF-8 without byte-order mark; text of nothing but blanks and comments is
/// an empty dictionary. Nothing when it is malformed.
///
/// Every entry needs its semicolon. A strings file, and only that, may be cut off where an entry
/// would begin: by a comment that is not closed, and after an entry also by a quoted key that is
/// not closed, or by a closing brace too many with nothing behind it. The entries before are read
/// then. An entry that is itself cut off makes the file malformed, so that a rewrite does not lose
/// it.
std::optional<PropertyListValue> propertyListFromText(std::string_view text);

}  // namespace clientcomm
