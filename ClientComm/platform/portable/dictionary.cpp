#include "ClientComm/platform/dictionary.h"

#include <variant>

namespace clientcomm {

const PropertyListValue* valueFor(const PropertyListDictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry != dictionary.end() ? &entry->second : nullptr;
}

OptionalString stringFor(const PropertyListDictionary& dictionary, std::string_view key) {
  const PropertyListValue* const value = valueFor(dictionary, key);
  return value != nullptr ? value->stringValue() : std::nullopt;
}

bool flagFor(const PropertyListDictionary& dictionary, std::string_view key) {
  const PropertyListValue* const value = valueFor(dictionary, key);
  return value != nullptr && value->boolValue();
}

std::optional<std::uint64_t> unsignedFor(const PropertyListDictionary& dictionary,
                                         std::string_view key) {
  const PropertyListValue* const value = valueFor(dictionary, key);
  if (value == nullptr) return std::nullopt;
  if (const auto* const number = std::get_if<std::int64_t>(&value->variant())) {
    return *number >= 0 ? std::optional(static_cast<std::uint64_t>(*number)) : std::nullopt;
  }
  const auto* const number = std::get_if<std::uint64_t>(&value->variant());
  return number != nullptr ? std::optional(*number) : std::nullopt;
}

}  // namespace clientcomm
