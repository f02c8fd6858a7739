#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// The base64 form of `data`, padded and on one line.
std::string base64FromData(const PropertyListValue::Data& data);

/// The bytes encoded in base64 `text`, which may hold blanks anywhere. Nothing when it holds
/// another character, or is not padded to a multiple of four.
std::optional<PropertyListValue::Data> dataFromBase64(std::string_view text);

}  // namespace clientcomm
