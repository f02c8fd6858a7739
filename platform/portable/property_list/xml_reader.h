#pragma once

#include <optional>
#include <string_view>

#include "platform/property_list.h"

namespace platform {

/// Reads an XML property list. Nothing when it is malformed or nested too deep.
std::optional<PropertyListValue> propertyListFromXml(std::string_view text);

}  // namespace platform
