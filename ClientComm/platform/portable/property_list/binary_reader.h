#pragma once

#include <optional>
#include <string_view>

#include "ClientComm/platform/property_list.h"

namespace platform {

/// Reads a binary property list. Nothing when it is malformed, nested too deep, or unfolds to much
/// more than its size.
std::optional<PropertyListValue> propertyListFromBinary(std::string_view bytes);

}  // namespace platform
