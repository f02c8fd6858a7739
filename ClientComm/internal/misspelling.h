#pragma once

#include <span>
#include <string>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// Whether at most `most` letters have to be added, removed or replaced to make `one` of `other`.
/// The case of ASCII letters, blanks, "_" and "-" do not count. Takes 3^`most` steps for a letter.
bool differAtMostBy(unsigned most, const char* one, const char* other) noexcept;

/// Which key of `found` is most likely meant to be one of `keys`; null where none is close. A
/// longer key may differ more: one letter in four, three at most.
const std::string* misspellingOf(std::span<const char* const> keys,
                                 const PropertyListDictionary& found) noexcept;

}  // namespace clientcomm
