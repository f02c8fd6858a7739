#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/types.h"

/// Typed reading of a dictionary. A missing key and a value of another type read alike.
namespace clientcomm {

/// The value of `key`; null when there is none. Holds while the dictionary does not change.
const PropertyListValue* valueFor(const PropertyListDictionary& dictionary, std::string_view key);

/// The string at `key`, else nil.
OptionalString stringFor(const PropertyListDictionary& dictionary, std::string_view key);

/// The truth value at `key`, by `PropertyListValue::boolValue`, else false.
bool flagFor(const PropertyListDictionary& dictionary, std::string_view key);

/// The integer at `key`; nothing when it is negative.
std::optional<std::uint64_t> unsignedFor(const PropertyListDictionary& dictionary,
                                         std::string_view key);

}  // namespace clientcomm
