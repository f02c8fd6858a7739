#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace sample {

/// `value` as JSON text; a byte that is not UTF-8 is replaced by U+FFFD.
/// @param indent spaces per level; -1 puts everything on one line.
inline std::string jsonText(const nlohmann::json& value, int indent = 2) {
  return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace sample
