#pragma once

#include <optional>
#include <string_view>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// Reads a binary property list. Nothing when it is malformed, nested too deep, or unfolds to much
/// more than its size.
std::optional<PropertyListValue> propertyListFromBinary(std::string_view bytes);

}  // namespace clientcomm
