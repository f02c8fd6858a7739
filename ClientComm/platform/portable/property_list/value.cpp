#include "ClientComm/platform/portable/property_list/value.h"

#include <algorithm>
#include <limits>

#include "ClientComm/platform/text.h"

namespace clientcomm {

bool isNestedWithinLimit(const PropertyListValue& value, int depth) {
  if (depth > kMaximumPropertyListNesting) return false;
  if (const auto* array = value.array()) {
    return std::ranges::all_of(*array, [depth](const PropertyListValue& item) {
      return isNestedWithinLimit(item, depth + 1);
    });
  }
  const auto* dictionary = value.dictionary();
  return dictionary == nullptr || std::ranges::all_of(*dictionary, [depth](const auto& entry) {
           return isNestedWithinLimit(entry.second, depth + 1);
         });
}

PropertyListValue integerValue(std::uint64_t value) {
  const bool fitsSigned =
      value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return fitsSigned ? PropertyListValue(static_cast<std::int64_t>(value))
                    : PropertyListValue(value);
}

OptionalString PropertyListValue::stringValue() const {
  const auto* text = std::get_if<std::string>(&value_);
  return text == nullptr ? std::nullopt : OptionalString(*text);
}

bool PropertyListValue::boolValue() const noexcept {
  if (const auto* truth = std::get_if<bool>(&value_)) return *truth;
  if (const auto* number = std::get_if<std::int64_t>(&value_)) return *number != 0;
  if (const auto* number = std::get_if<std::uint64_t>(&value_)) return *number != 0;
  if (const auto* number = std::get_if<double>(&value_)) return *number != 0;
  if (const auto* text = std::get_if<std::string>(&value_)) return clientcomm::boolValue(*text);
  return false;
}

}  // namespace clientcomm
