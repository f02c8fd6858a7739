#include "ClientComm/platform/portable/property_list/strings_writer.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "ClientComm/platform/characters.h"
#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/strings_file.h"
#include "ClientComm/platform/text.h"

namespace clientcomm {
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
    for (std::string_view rest = text; !rest.empty();) appendCharacter(rest);
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

  // Takes one character off `text`. A byte that is no UTF-8 is escaped as a low surrogate, which no
  // text holds alone.
  void appendCharacter(std::string_view& text) {
    const std::string_view before = text;
    const char32_t character = takeCharacter(text);
    const std::string_view taken = before.substr(0, before.size() - text.size());
    if (character == kReplacementCharacter && taken.size() == 1) {
      appendNumber("\\U", kFirstByteSurrogate + static_cast<unsigned char>(taken[0]), 16);
    } else if (character == '\n') {
      out_ += "\\n";
    } else if (character == '\r') {
      out_ += "\\r";
    } else if (character < 0x20 && character != '\t') {
      appendNumber(character < 8 ? "\\00" : "\\0", character, 8);
    } else {
      if (character == '"' || character == '\\') out_ += '\\';
      out_ += taken;
    }
  }

  void appendNumber(std::string_view prefix, char32_t number, int base) {
    std::array<char, 8> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(),
                                   static_cast<unsigned>(number), base)
                         .ptr;
    out_.append(prefix).append(digits.data(), end);
  }

  std::string out_;
};

}  // namespace

std::string stringsFileText(const PropertyListDictionary& dictionary) {
  return TextWriter().write(dictionary);
}

}  // namespace clientcomm
