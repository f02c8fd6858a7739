// Version strings: three of them, one a line (the last takes the rest). They are split, classified
// and compared, against a slow and literal implementation of the rules over UTF-16 units.

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "fuzz/fuzz.h"

namespace {

using fuzz::require;

namespace reference {

enum Type { kDigits = 0, kOther = 1, kDot = 2 };

// A byte that is not part of a well-formed character reads as one replacement character.
std::u16string unitsOf(std::string_view text) {
  std::u16string units;
  while (!text.empty()) {
    gunichar code = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    std::size_t length = 1;
    if (text.front() == '\0') {
      code = 0;
    } else if (code > 0x10FFFF) {
      code = 0xFFFD;
    } else {
      length = static_cast<std::size_t>(g_unichar_to_utf8(code, nullptr));
    }
    text.remove_prefix(length);
    if (code < 0x10000) {
      units += static_cast<char16_t>(code);
    } else {
      units += static_cast<char16_t>(0xD800U + ((code - 0x10000U) >> 10U));
      units += static_cast<char16_t>(0xDC00U + ((code - 0x10000U) & 0x3FFU));
    }
  }
  return units;
}

Type typeOf(char16_t unit) {
  if (unit == u'.') return kDot;
  return g_unichar_type(unit) == G_UNICODE_DECIMAL_NUMBER ? kDigits : kOther;
}

std::vector<std::u16string> split(const std::u16string& version) {
  std::vector<std::u16string> components;
  if (version.empty()) return components;
  std::u16string piece(1, version[0]);
  Type previous = typeOf(version[0]);
  for (std::size_t i = 1; i < version.size(); ++i) {
    const Type type = typeOf(version[i]);
    if (type != previous || previous == kDot) {
      components.push_back(piece);
      piece.clear();
    }
    piece += version[i];
    previous = type;
  }
  components.push_back(piece);
  return components;
}

// Digits of other scripts delimit a run, but have no value.
std::int64_t valueOf(const std::u16string& digits) {
  std::int64_t value = 0;
  for (const char16_t unit : digits) {
    if (unit < u'0' || unit > u'9') break;
    value = std::min<std::int64_t>(value * 10 + (unit - u'0'), 2147483647);
  }
  return value;
}

int signOf(std::int64_t value) { return value < 0 ? -1 : (value > 0 ? 1 : 0); }

int compareSameType(Type type, const std::u16string& a, const std::u16string& b) {
  if (type == kDot) return 0;
  return signOf(type == kDigits ? valueOf(a) - valueOf(b) : std::int64_t{a.compare(b)});
}

int compare(std::string_view first, std::string_view second) {
  const auto a = split(unitsOf(first));
  const auto b = split(unitsOf(second));
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const Type ta = typeOf(a[i][0]);
    const Type tb = typeOf(b[i][0]);
    if (ta != tb) {
      if (ta == kOther) return -1;
      if (tb == kOther) return 1;
      return ta != kDigits ? -1 : 1;
    }
    if (const int result = compareSameType(ta, a[i], b[i]); result != 0) return result;
  }
  if (a.size() == b.size()) return 0;
  if (a.size() < b.size()) return typeOf(b[n][0]) == kOther ? 1 : -1;
  return typeOf(a[n][0]) == kOther ? -1 : 1;
}

}  // namespace reference

void checkComponents(const std::string& version) {
  std::string joined;
  std::vector<std::u16string> units;
  for (const std::string& component : TQHPHelperCommunicate::splitVersionString(version)) {
    require(!component.empty(), "no component is empty");
    joined += component;
    units.push_back(reference::unitsOf(component));
    require(TQHPHelperCommunicate::typeOfCharacter(component) == reference::typeOf(units.back()[0]),
            "a component is of the class of its first character");
  }
  require(joined == version, "the components joined give the version back");
  require(units == reference::split(reference::unitsOf(version)),
          "the components are those of the slow implementation");
}

int compare(const std::string& first, const std::string& second) {
  const int result = TQHPHelperCommunicate::compareVersion(first, second);
  require(result >= -1 && result <= 1, "a comparison yields -1, 0 or 1");
  require(result == reference::compare(first, second),
          "a comparison agrees with the slow implementation");
  require(TQHPHelperCommunicate::compareVersion(second, first) == -result,
          "swapping the versions negates the result");
  return result;
}

// Component by component, each of the kinds and the end has its place: other < end < dot < digits.
// Every version is therefore a word over an ordered alphabet, and the comparison, which decides at
// the first difference, is the order of such words: transitive, and equality is too.
void checkOrder(const std::array<std::string, 3>& versions) {
  const auto& [a, b, c] = versions;
  const int ab = compare(a, b);
  const int bc = compare(b, c);
  const int ac = compare(a, c);
  if (ab == 0) require(ac == bc, "what equals a version compares as it does");
  if (bc == 0) require(ac == ab, "what equals a version compares as it does");
  if (ab != 0 && ab == bc) require(ac == ab, "newer than the newer is newer");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  std::array<std::string, 3> versions;
  versions[0] = input.takeLine();
  versions[1] = input.takeLine();
  versions[2] = input.takeRest();
  for (const std::string& version : versions) {
    checkComponents(version);
    require(compare(version, version) == 0, "a version equals itself");
  }
  checkOrder(versions);
  return 0;
}
