#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/property_list.h"

namespace platform {
namespace {

class TextWriter {
 public:
  std::string write(const PropertyListDictionary& dictionary) {
    for (const auto& [key, value] : dictionary) entry(key, value);
    return std::move(out_);
  }

 private:
  void entry(const std::string& key, const PropertyListValue& value) {
    append(key);
    out_ += " = ";
    appendValue(value);
    out_ += ";\n";
  }

  // The format knows no truth values, numbers and dates; they become strings that read alike.
  void append(bool value) { append(std::string(value ? "1" : "0")); }
  void append(std::int64_t value) { append(std::to_string(value)); }
  void append(std::uint64_t value) { append(std::to_string(value)); }
  void append(double value) {
    std::array<char, 40> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    append(std::string(digits.data(), end));
  }
  void append(PropertyListDate value) { append(value.secondsSinceReferenceDate); }
  void append(PropertyListUID value) { append(value.value); }
  void append(const std::string& text) {
    out_ += '"';
    for (const char c : text) appendEscaped(c);
    out_ += '"';
  }
  void append(const PropertyListValue::Data& data) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    out_ += '<';
    for (const std::byte byte : data) {
      out_ += kDigits[std::to_integer<std::size_t>(byte >> 4)];
      out_ += kDigits[std::to_integer<std::size_t>(byte & std::byte{0x0F})];
    }
    out_ += '>';
  }
  void append(const PropertyListValue::Array& array) {
    out_ += "(";
    for (const PropertyListValue& value : array) {
      appendValue(value);
      out_ += ", ";
    }
    out_ += ")";
  }
  void append(const PropertyListDictionary& dictionary) {
    out_ += "{\n";
    for (const auto& [key, value] : dictionary) entry(key, value);
    out_ += "}";
  }
  void appendValue(const PropertyListValue& value) {
    std::visit([this](const auto& held) { append(held); }, value.variant());
  }

  void appendEscaped(char c) {
    switch (c) {
      case '"':
      case '\\':
        out_ += '\\';
        out_ += c;
        break;
      case '\n':
        out_ += "\\n";
        break;
      case '\r':
        out_ += "\\r";
        break;
      case '\0':
        out_ += "\\000";
        break;
      default:
        out_ += c;
    }
  }

  std::string out_;
};

}  // namespace

std::string descriptionInStringsFileFormat(const PropertyListDictionary& dictionary) {
  return TextWriter().write(dictionary);
}

}  // namespace platform
