#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ClientComm/platform/export.h"
#include "ClientComm/platform/types.h"

/// Property lists and strings files: the values, and reading and writing them.
namespace clientcomm {

/// A point in time, in seconds since 1 January 2001, 00:00 UTC (the property list's epoch).
struct PropertyListDate {
  /// May be negative and have a fraction.
  double secondsSinceReferenceDate = 0;
  /// Compares the seconds.
  bool operator==(const PropertyListDate&) const = default;
};

/// A keyed-archive reference; carried through a rewrite, never interpreted.
struct PropertyListUID {
  std::uint64_t value = 0;  ///< The number of the object that is referred to.
  /// Compares the numbers.
  bool operator==(const PropertyListUID&) const = default;
};

/// One value of a property list. Signed and unsigned integers are kept apart only where a value
/// does not fit the signed type.
class CLIENTCOMM_EXPORT PropertyListValue {
 public:
  /// Values in order.
  using Array = std::vector<PropertyListValue>;
  /// Values by key.
  using Dictionary = std::map<std::string, PropertyListValue, std::less<>>;
  /// Bytes.
  using Data = std::vector<std::byte>;
  /// What a value can be.
  using Variant = std::variant<bool, std::int64_t, std::uint64_t, double, std::string, Data,
                               PropertyListDate, PropertyListUID, Array, Dictionary>;

  /// The truth value false.
  PropertyListValue() : value_(false) {}

  /// @{
  /// A value of the parameter's type. A `const char*` is a string and must not be null.
  PropertyListValue(bool value) : value_(value) {}                      // NOLINT(*-explicit-*)
  PropertyListValue(int value) : value_(std::int64_t{value}) {}         // NOLINT(*-explicit-*)
  PropertyListValue(std::int64_t value) : value_(value) {}              // NOLINT(*-explicit-*)
  PropertyListValue(std::uint64_t value) : value_(value) {}             // NOLINT(*-explicit-*)
  PropertyListValue(double value) : value_(value) {}                    // NOLINT(*-explicit-*)
  PropertyListValue(const char* value) : value_(std::string(value)) {}  // NOLINT(*-explicit-*)
  PropertyListValue(std::string value) : value_(std::move(value)) {}    // NOLINT(*-explicit-*)
  PropertyListValue(Data value) : value_(std::move(value)) {}           // NOLINT(*-explicit-*)
  PropertyListValue(PropertyListDate value) : value_(value) {}          // NOLINT(*-explicit-*)
  PropertyListValue(PropertyListUID value) : value_(value) {}           // NOLINT(*-explicit-*)
  PropertyListValue(Array value) : value_(std::move(value)) {}          // NOLINT(*-explicit-*)
  PropertyListValue(Dictionary value) : value_(std::move(value)) {}     // NOLINT(*-explicit-*)
  /// @}

  /// The value, whatever its type.
  const Variant& variant() const { return value_; }

  /// The string; nil when the value is of any other type.
  OptionalString stringValue() const;
  /// The array; null when the value is of any other type.
  const Array* array() const { return std::get_if<Array>(&value_); }
  /// The dictionary; null when the value is of any other type.
  const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }
  /// The same, to be changed.
  Dictionary* dictionary() { return std::get_if<Dictionary>(&value_); }

  /// The truth value: a number is true when it is not zero, a string by `clientcomm::boolValue`,
  /// anything else is false.
  bool boolValue() const noexcept;

  /// Equal type and equal value: 1 and true differ.
  bool operator==(const PropertyListValue&) const = default;

 private:
  Variant value_;
};

/// The top value of an Info dictionary, of settings and of a strings file.
using PropertyListDictionary = PropertyListValue::Dictionary;

/// Reads a property list (XML, binary or old-style text) or a strings file (UTF-16 with byte-order
/// mark, or UTF-8) from memory. Nothing when `bytes` is none of these: no byte at all is no list,
/// and a list of which any part is malformed is refused whole, so that no rewrite loses that part.
///
/// XML has the encoding that its byte-order mark or else its declaration says. Only a strings file
/// may be cut off at its end: the entries before a comment or a key that is not closed, or before a
/// closing brace too many, are read. A missing semicolon, the last one included, is malformed.
CLIENTCOMM_EXPORT std::optional<PropertyListValue> propertyListFromBytes(std::string_view bytes);

/// Reads the file at `path` as above; completes a write that was cut short. Nothing when it is
/// missing, unreadable, malformed, or its top value is not a dictionary.
CLIENTCOMM_EXPORT std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(
    const std::string& path);

/// The XML property list of `dictionary`, in UTF-8; every type of value is kept. Any string can be
/// written: one that XML cannot hold (not UTF-8, or with control characters) is written as data
/// after the processing instruction `<?clientcomm string?>`, and such a key percent-encoded after
/// `<?clientcomm percent-encoded?>`. `propertyListFromBytes` reads both as the strings they were.
CLIENTCOMM_EXPORT std::string xmlPropertyList(const PropertyListDictionary& dictionary);

/// Writes `dictionary` to `path` as an XML property list. An existing file is written in place:
/// nothing but its content changes, and through a symbolic link the target is written. A recovery
/// copy beside it lets the next reader complete a write that was cut short.
/// @return false when it could not be written, or is too large or nested too deep to be read again;
///         the old content stays then.
CLIENTCOMM_EXPORT bool writeDictionaryToFile(const PropertyListDictionary& dictionary,
                                             const std::string& path);

}  // namespace clientcomm
