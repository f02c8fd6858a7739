#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/property_list.h"

namespace platform {

/// How deep the values of a property list may be nested; what is nested deeper is malformed.
inline constexpr int kMaximumPropertyListNesting = 128;

/// As `writeDictionaryToFile`; a file that is new gets `modeOfNew`, less the umask.
bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path,
                           mode_t modeOfNew);

/// Reads an old-style text property list, or the text of a strings file, which is the inside of a
/// dictionary. `text` is UTF-8 without byte-order mark; text of nothing but blanks and comments is
/// an empty dictionary. Nothing when it is malformed.
std::optional<PropertyListValue> propertyListFromText(std::string_view text);

/// The UTF-8 form of UTF-16 `bytes` (without byte-order mark). Nothing when it is ill-formed.
std::optional<std::string> utf8FromUtf16(std::string_view bytes, bool isBigEndian);

}  // namespace platform
