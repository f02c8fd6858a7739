#include "ClientComm/TQHPVersion.h"

#include <algorithm>
#include <cstdint>

#include "platform/text.h"

namespace {

constexpr char32_t kFirstBeyondOneUnit = 0x10000;

bool isAscii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

// Characters are classified by UTF-16 unit; one that takes two units is no digit.
VersionComponentType typeOf(char32_t character) {
  if (character == U'.') return VersionComponentType::kDot;
  const bool isDigit =
      character < kFirstBeyondOneUnit && platform::isDecimalDigit(static_cast<char16_t>(character));
  return isDigit ? VersionComponentType::kDigits : VersionComponentType::kOther;
}

VersionComponentType typeOfAscii(char byte) {
  if (byte == '.') return VersionComponentType::kDot;
  return byte >= '0' && byte <= '9' ? VersionComponentType::kDigits : VersionComponentType::kOther;
}

VersionComponentType takeType(std::string_view& text) {
  const char byte = text.front();
  if (!isAscii(byte)) return typeOf(platform::takeCharacter(text));
  text.remove_prefix(1);
  return typeOfAscii(byte);
}

// What both begin with decides nothing. What is compared starts behind its last dot, as a dot is a
// component of its own wherever it stands.
void skipCommonBeginning(std::string_view& first, std::string_view& second) {
  const auto end = std::mismatch(first.begin(), first.end(), second.begin(), second.end()).first;
  const auto common = first.substr(0, static_cast<std::size_t>(end - first.begin()));
  const std::size_t dot = common.rfind('.');
  if (dot == std::string_view::npos) return;
  first.remove_prefix(dot + 1);
  second.remove_prefix(dot + 1);
}

// The value of a run of digits; almost always it is short and in ASCII.
std::int32_t valueOf(std::string_view digits) {
  constexpr std::size_t kShort = 9;
  std::int32_t value = 0;
  for (const char digit : digits) {
    if (digits.size() > kShort || !isAscii(digit)) return platform::intValue(digits);
    value = value * 10 + (digit - '0');
  }
  return value;
}

// The order of a character by its first UTF-16 unit: one beyond the first 65,536 begins with a
// surrogate, which lies below the characters from U+E000 on.
char32_t firstUnit(char32_t character) {
  if (character < kFirstBeyondOneUnit) return character;
  return 0xD800 + ((character - kFirstBeyondOneUnit) >> 10);
}

int compareByUnit(std::string_view first, std::string_view second) {
  while (!first.empty() && !second.empty()) {
    const char32_t a = platform::takeCharacter(first);
    const char32_t b = platform::takeCharacter(second);
    if (a == b) continue;
    const char32_t unitA = firstUnit(a);
    const char32_t unitB = firstUnit(b);
    if (unitA != unitB) return unitA < unitB ? -1 : 1;
    return a < b ? -1 : 1;
  }
  if (first.empty() && second.empty()) return 0;
  return first.empty() ? -1 : 1;
}

int compareComponents(const VersionComponent& a, const VersionComponent& b) {
  using enum VersionComponentType;
  if (a.type != b.type) {
    if (a.type == kOther) return -1;
    if (b.type == kOther) return 1;
    return a.type == kDot ? -1 : 1;
  }
  if (a.type == kDot) return 0;
  if (a.type == kOther) return compareByUnit(a.text, b.text);
  const std::int32_t valueA = valueOf(a.text);
  const std::int32_t valueB = valueOf(b.text);
  return valueA == valueB ? 0 : (valueA < valueB ? -1 : 1);
}

}  // namespace

bool VersionReader::next(VersionComponent& component) {
  if (rest_.empty()) return false;
  const std::string_view start = rest_;
  component.type = takeType(rest_);
  while (component.type != VersionComponentType::kDot && !rest_.empty()) {
    if (isAscii(rest_.front())) {
      if (typeOfAscii(rest_.front()) != component.type) break;
      rest_.remove_prefix(1);
      continue;
    }
    std::string_view ahead = rest_;
    if (takeType(ahead) != component.type) break;
    rest_ = ahead;
  }
  component.text = start.substr(0, start.size() - rest_.size());
  return true;
}

int compareVersionStrings(std::string_view first, std::string_view second) {
  if (first == second) return 0;
  skipCommonBeginning(first, second);
  VersionReader readerA(first);
  VersionReader readerB(second);
  for (;;) {
    VersionComponent a;
    VersionComponent b;
    const bool hasA = readerA.next(a);
    const bool hasB = readerB.next(b);
    if (!hasA && !hasB) return 0;
    // A version with a text suffix is older than the same version without it.
    if (!hasA) return b.type == VersionComponentType::kOther ? 1 : -1;
    if (!hasB) return a.type == VersionComponentType::kOther ? -1 : 1;
    if (const int result = compareComponents(a, b); result != 0) return result;
  }
}
