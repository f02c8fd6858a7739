#include "ClientComm/platform/portable/property_list/text_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <string>
#include <utility>

#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"

namespace clientcomm {
namespace {

// The upper half of the 8-bit character set in which the format's octal escapes are written.
constexpr std::array<char16_t, 128> kOctalEscapeCharacters = {
    0x00A0, 0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C7, 0x00C8, 0x00C9, 0x00CA, 0x00CB,
    0x00CC, 0x00CD, 0x00CE, 0x00CF, 0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D9,
    0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00B5, 0x00D7, 0x00F7, 0x00A9, 0x00A1, 0x00A2, 0x00A3,
    0x2044, 0x00A5, 0x0192, 0x00A7, 0x00A4, 0x2019, 0x201C, 0x00AB, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x00AE, 0x2013, 0x2020, 0x2021, 0x00B7, 0x00A6, 0x00B6, 0x2022, 0x201A, 0x201E, 0x201D, 0x00BB,
    0x2026, 0x2030, 0x00AC, 0x00BF, 0x00B9, 0x02CB, 0x00B4, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9,
    0x00A8, 0x00B2, 0x02DA, 0x00B8, 0x00B3, 0x02DD, 0x02DB, 0x02C7, 0x2014, 0x00B1, 0x00BC, 0x00BD,
    0x00BE, 0x00E0, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5, 0x00E7, 0x00E8, 0x00E9, 0x00EA, 0x00EB,
    0x00EC, 0x00C6, 0x00ED, 0x00AA, 0x00EE, 0x00EF, 0x00F0, 0x00F1, 0x0141, 0x00D8, 0x0152, 0x00BA,
    0x00F2, 0x00F3, 0x00F4, 0x00F5, 0x00F6, 0x00E6, 0x00F9, 0x00FA, 0x00FB, 0x0131, 0x00FC, 0x00FD,
    0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x00FF, 0xFFFD, 0xFFFD};

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// The value of a hexadecimal digit; -1 for any other character.
constexpr int hexadecimalValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

class Parser {
 public:
  explicit Parser(std::string_view text) : rest_(text) {}

  /// One value and nothing behind it.
  std::optional<PropertyListValue> loneValue() {
    auto result = value(0);
    if (!result || !skipBlanks() || !rest_.empty()) return std::nullopt;
    return result;
  }

  /// The inside of a dictionary, up to the end of the text or to what cuts it off there.
  std::optional<PropertyListValue> stringsTable() {
    PropertyListDictionary dictionary;
    while (skipBlanks() && !rest_.empty()) {
      Parser before = *this;
      if (entry(dictionary, 1)) continue;
      if (dictionary.empty() || !before.isCutOff()) return std::nullopt;
      break;
    }
    return PropertyListValue(std::move(dictionary));
  }

 private:
  // @return false when a comment is not closed.
  bool skipBlanks() {
    for (;;) {
      rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\n\v\f\r"), rest_.size()));
      if (rest_.starts_with("//")) {
        rest_.remove_prefix(std::min(rest_.find_first_of("\n\r"), rest_.size()));
      } else if (rest_.starts_with("/*")) {
        const std::size_t end = rest_.find("*/", 2);
        if (end == std::string_view::npos) return false;
        rest_.remove_prefix(end + 2);
      } else {
        return true;
      }
    }
  }

  // Whether there is no entry here but a brace with nothing behind it, or a key without end.
  bool isCutOff() {
    if (take('}')) return !skipBlanks() || rest_.empty();
    const bool isQuoted = rest_.starts_with('"') || rest_.starts_with('\'');
    return isQuoted && !string();
  }

  bool take(char c) {
    if (!skipBlanks() || !rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  std::optional<PropertyListValue> value(int depth) {
    if (depth > kMaximumPropertyListNesting) return std::nullopt;
    if (take('{')) return dictionary(depth + 1);
    if (take('(')) return array(depth + 1);
    if (take('<')) return data();
    auto text = string();
    if (!text) return std::nullopt;
    return PropertyListValue(std::move(*text));
  }

  std::optional<PropertyListValue> array(int depth) {
    PropertyListValue::Array items;
    while (!take(')')) {
      auto item = value(depth);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
      if (take(',')) continue;
      if (!take(')')) return std::nullopt;
      break;
    }
    return PropertyListValue(std::move(items));
  }

  std::optional<PropertyListValue> dictionary(int depth) {
    PropertyListDictionary entries;
    while (!take('}')) {
      if (!entry(entries, depth)) return std::nullopt;
    }
    return PropertyListValue(std::move(entries));
  }

  // "key = value;", or "key;", which is short for "key = key;".
  bool entry(PropertyListDictionary& dictionary, int depth) {
    auto key = string();
    if (!key) return false;
    PropertyListValue held(*key);
    if (take('=')) {
      auto given = value(depth);
      if (!given) return false;
      held = std::move(*given);
    }
    if (!take(';')) return false;
    dictionary.insert_or_assign(std::move(*key), std::move(held));
    return true;
  }

  std::optional<PropertyListValue> data() {
    PropertyListValue::Data bytes;
    int high = -1;
    while (!take('>')) {
      if (rest_.empty()) return std::nullopt;
      const int digit = hexadecimalValue(rest_.front());
      if (digit < 0) return std::nullopt;
      rest_.remove_prefix(1);
      if (high >= 0) bytes.push_back(static_cast<std::byte>(high * 16 + digit));
      high = high >= 0 ? -1 : digit;
    }
    if (high >= 0) return std::nullopt;
    return PropertyListValue(std::move(bytes));
  }

  std::optional<std::string> string() {
    if (take('"')) return quoted('"');
    if (take('\'')) return quoted('\'');
    const auto isWordCharacter = [](char c) {
      return isLetter(c) || isDigit(c) ||
             std::string_view("_$/:.-").find(c) != std::string_view::npos;
    };
    const auto end = std::find_if_not(rest_.begin(), rest_.end(), isWordCharacter);
    const auto length = static_cast<std::size_t>(end - rest_.begin());
    if (length == 0) return std::nullopt;
    std::string word(rest_.substr(0, length));
    rest_.remove_prefix(length);
    return word;
  }

  // The opening quote is taken already.
  std::optional<std::string> quoted(char quote) {
    const char stops[] = {quote, '\\', '\0'};
    std::string text;
    for (;;) {
      const std::size_t length = rest_.find_first_of(stops);
      if (length == std::string_view::npos) return std::nullopt;
      text += rest_.substr(0, length);
      const char stop = rest_[length];
      rest_.remove_prefix(length + 1);
      if (stop == quote) return text;
      if (rest_.empty()) return std::nullopt;
      escape(text);
    }
  }

  // The backslash is taken already, and something follows it.
  void escape(std::string& text) {
    const char c = rest_.front();
    if (c >= '0' && c <= '7') {
      const unsigned code = number(3, 8) & 0xFFU;
      appendUtf8(text, code < 0x80 ? code : kOctalEscapeCharacters[code - 0x80]);
      return;
    }
    rest_.remove_prefix(1);
    if (c == 'U' && !rest_.empty() && hexadecimalValue(rest_.front()) >= 0) {
      const char32_t character = escapedCharacter();
      if (isByteSurrogate(character)) {
        text += static_cast<char>(character - kFirstByteSurrogate);
      } else {
        appendUtf8(text, character);
      }
      return;
    }
    constexpr std::string_view kLetters = "abfnrtv";
    constexpr std::string_view kControls = "\a\b\f\n\r\t\v";
    const std::size_t index = kLetters.find(c);
    text += index == std::string_view::npos ? c : kControls[index];
  }

  // The digits of a \U escape, and the second half where two escapes make one character.
  char32_t escapedCharacter() {
    const char32_t unit = number(4, 16);
    if (isHighSurrogate(unit) && rest_.starts_with("\\U")) {
      const std::string_view before = rest_;
      rest_.remove_prefix(2);
      const char32_t second = number(4, 16);
      if (isLowSurrogate(second)) return joinedSurrogates(unit, second);
      rest_ = before;
    }
    const bool isHalf = isHighSurrogate(unit) || (isLowSurrogate(unit) && !isByteSurrogate(unit));
    return isHalf ? kReplacementCharacter : unit;
  }

  // Takes the digits of `base` at the front, at most `limit` of them; 0 when there are none.
  unsigned number(std::size_t limit, int base) {
    const std::string_view digits = rest_.substr(0, limit);
    unsigned result = 0;
    const auto end =
        std::from_chars(digits.data(), digits.data() + digits.size(), result, base).ptr;
    rest_.remove_prefix(static_cast<std::size_t>(end - digits.data()));
    return result;
  }

  std::string_view rest_;
};

}  // namespace

std::optional<PropertyListValue> propertyListFromText(std::string_view text) {
  if (!isUtf8(text)) return std::nullopt;
  if (auto value = Parser(text).loneValue()) return value;
  return Parser(text).stringsTable();
}

}  // namespace clientcomm
