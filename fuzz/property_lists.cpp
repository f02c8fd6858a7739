#include "fuzz/property_lists.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <variant>

namespace fuzz {
namespace {

using clientcomm::PropertyListDate;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListUID;
using clientcomm::PropertyListValue;

PropertyListValue readFromXml(const PropertyListValue& value);

template <typename Value>
PropertyListValue readFromXml(const Value& value) {
  return value;
}

PropertyListValue readFromXml(std::uint64_t value) {
  const bool isSigned =
      value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return isSigned ? PropertyListValue(static_cast<std::int64_t>(value)) : PropertyListValue(value);
}

PropertyListValue readFromXml(double value) { return std::isnan(value) ? 0.0 : value; }

PropertyListValue readFromXml(PropertyListDate value) {
  constexpr double kStartOfYear1 = -63113904000.0;
  constexpr double kLastSecondOfYear9999 = 252423993599.0;
  const double seconds = std::floor(value.secondsSinceReferenceDate);
  return PropertyListDate{
      std::isnan(seconds) ? 0 : std::clamp(seconds, kStartOfYear1, kLastSecondOfYear9999)};
}

PropertyListValue readFromXml(const PropertyListValue::Array& value) {
  PropertyListValue::Array result;
  for (const PropertyListValue& item : value) result.push_back(readFromXml(item));
  return result;
}

PropertyListValue readFromXml(const PropertyListDictionary& value) {
  PropertyListDictionary result;
  for (const auto& [key, held] : value) {
    result.insert_or_assign(key, readFromXml(held));
  }
  if (result.size() == 1 && result.begin()->first == "CF$UID") {
    const PropertyListValue::Variant& number = result.begin()->second.variant();
    if (const auto* large = std::get_if<std::uint64_t>(&number)) return PropertyListUID{*large};
    const auto* small = std::get_if<std::int64_t>(&number);
    if (small != nullptr && *small >= 0) {
      return PropertyListUID{static_cast<std::uint64_t>(*small)};
    }
  }
  return result;
}

PropertyListValue readFromXml(const PropertyListValue& value) {
  return std::visit([](const auto& held) { return readFromXml(held); }, value.variant());
}

void measure(const PropertyListValue& value, int depth, Measure& result) {
  ++result.count;
  result.depth = std::max(result.depth, depth);
  if (value.array() != nullptr) {
    for (const PropertyListValue& item : *value.array()) measure(item, depth + 1, result);
  }
  if (value.dictionary() != nullptr) {
    for (const auto& [key, held] : *value.dictionary()) measure(held, depth + 1, result);
  }
}

}  // namespace

Measure measureOf(const PropertyListValue& value) {
  Measure result;
  measure(value, 1, result);
  return result;
}

PropertyListValue asReadFromXml(const PropertyListValue& value) { return readFromXml(value); }

}  // namespace fuzz
