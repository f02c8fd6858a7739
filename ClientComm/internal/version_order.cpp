#include "ClientComm/internal/version_order.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "ClientComm/platform/character_class.h"
#include "ClientComm/platform/characters.h"
#include "ClientComm/platform/text.h"

namespace clientcomm {
namespace {

constexpr char32_t kFirstBeyondOneUnit = 0x10000;

bool isAscii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

// Of a character beyond ASCII. Characters are classified by UTF-16 unit; one that takes two units
// is no digit.
VersionComponentType typeOf(char32_t character) {
  const bool isDigit =
      character < kFirstBeyondOneUnit && isDecimalDigit(static_cast<char16_t>(character));
  return isDigit ? VersionComponentType::kDigits : VersionComponentType::kOther;
}

VersionComponentType typeOfAscii(char byte) {
  if (byte >= '0' && byte <= '9') return VersionComponentType::kDigits;
  return byte == '.' ? VersionComponentType::kDot : VersionComponentType::kOther;
}

// The type of the character at `position`, which moves behind it.
VersionComponentType takeType(std::string_view text, std::size_t& position) {
  if (isAscii(text[position])) return typeOfAscii(text[position++]);
  std::string_view rest = text.substr(position);
  const VersionComponentType type = typeOf(takeCharacter(rest));
  position = text.size() - rest.size();
  return type;
}

// How many bytes of both can be passed over: what both begin with decides nothing, up to the start
// of the component in which they part.
std::size_t commonBeginning(std::string_view first, std::string_view second) {
  const std::size_t shorter = std::min(first.size(), second.size());
  std::size_t end = 0;
  while (end < shorter && first[end] == second[end]) ++end;
  if (end == 0 || first[end - 1] == '.') return end;
  const VersionComponentType type = typeOfAscii(first[end - 1]);
  while (end > 0 && isAscii(first[end - 1]) && typeOfAscii(first[end - 1]) == type) --end;
  if (end == 0 || isAscii(first[end - 1])) return end;
  // A component with other characters may reach further back; a dot is always one of its own.
  const std::size_t dot = first.rfind('.', end - 1);
  return dot == std::string_view::npos ? 0 : dot + 1;
}

// What `intValue` gives for a run of digits, which has neither blanks nor a sign.
std::int32_t valueOf(std::string_view digits) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  std::int64_t value = 0;
  for (const char digit : digits) {
    if (!isAscii(digit)) break;
    value = value * 10 + (digit - '0');
    if (value > kMost) return kMost;
  }
  return static_cast<std::int32_t>(value);
}

// The order of a character by its first UTF-16 unit: one beyond the first 65,536 begins with a
// surrogate, which is below the characters from U+E000 on.
char32_t firstUnit(char32_t character) {
  if (character < kFirstBeyondOneUnit) return character;
  return 0xD800 + ((character - kFirstBeyondOneUnit) >> 10);
}

int compareByUnit(std::string_view first, std::string_view second) {
  while (!first.empty() && !second.empty()) {
    if (isAscii(first.front()) && isAscii(second.front())) {
      if (first.front() != second.front()) return first.front() < second.front() ? -1 : 1;
      first.remove_prefix(1);
      second.remove_prefix(1);
      continue;
    }
    const char32_t a = takeCharacter(first);
    const char32_t b = takeCharacter(second);
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
  std::size_t end = 0;
  component.type = takeType(rest_, end);
  while (component.type != VersionComponentType::kDot && end < rest_.size()) {
    std::size_t next = end;
    if (takeType(rest_, next) != component.type) break;
    end = next;
  }
  component.text = rest_.substr(0, end);
  rest_.remove_prefix(end);
  return true;
}

int compareVersionStrings(std::string_view first, std::string_view second) {
  const std::size_t common = commonBeginning(first, second);
  VersionReader readerA(first.substr(common));
  VersionReader readerB(second.substr(common));
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

}  // namespace clientcomm
