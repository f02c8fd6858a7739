#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "tests/support/allocation_count.h"

using clientcomm::OptionalString;

namespace {

using Components = std::vector<std::string>;

int compare(const OptionalString& first, const OptionalString& second) {
  return TQHPHelperCommunicate::compareVersion(first, second);
}

Components split(const OptionalString& version) {
  return TQHPHelperCommunicate::splitVersionString(version);
}

int typeOf(std::string_view text) { return TQHPHelperCommunicate::typeOfCharacter(text); }

// --- A second implementation, slow and literal, over UTF-16 units ---

namespace reference {

// Where a byte begins no character, it reads as one replacement character.
void appendCharacter(const std::string& text, std::size_t& position, std::u16string& units) {
  const auto byteAt = [&](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const auto isTail = [&](std::size_t i) { return (byteAt(i) & 0xC0U) == 0x80U; };
  const unsigned lead = byteAt(position);
  std::size_t length = 1;
  std::uint32_t code = 0xFFFD;
  if (lead < 0x80) {
    code = lead;
  } else if (lead >= 0xC2 && lead < 0xE0 && isTail(position + 1)) {
    code = ((lead & 0x1FU) << 6U) | (byteAt(position + 1) & 0x3FU);
    length = 2;
  } else if (lead >= 0xE0 && lead < 0xF0 && isTail(position + 1) && isTail(position + 2)) {
    code = ((lead & 0x0FU) << 12U) | ((byteAt(position + 1) & 0x3FU) << 6U) |
           (byteAt(position + 2) & 0x3FU);
    length = 3;
  } else if (lead >= 0xF0 && lead < 0xF5 && isTail(position + 1) && isTail(position + 2) &&
             isTail(position + 3)) {
    code = ((lead & 0x07U) << 18U) | ((byteAt(position + 1) & 0x3FU) << 12U) |
           ((byteAt(position + 2) & 0x3FU) << 6U) | (byteAt(position + 3) & 0x3FU);
    length = 4;
  }
  position += length;
  if (code < 0x10000) {
    units += static_cast<char16_t>(code);
  } else {
    units += static_cast<char16_t>(0xD800U + ((code - 0x10000U) >> 10U));
    units += static_cast<char16_t>(0xDC00U + ((code - 0x10000U) & 0x3FFU));
  }
}

std::u16string unitsOf(const std::string& text) {
  std::u16string units;
  for (std::size_t position = 0; position < text.size();) appendCharacter(text, position, units);
  return units;
}

bool isIn(char16_t unit, char16_t first) { return unit >= first && unit <= first + 9; }

// The decimal digits among the characters that the random versions are made of.
int typeOf(char16_t unit) {
  if (unit == u'.') return 2;
  const bool isDigit =
      isIn(unit, u'0') || isIn(unit, u'\u0660') || isIn(unit, u'\u0966') || isIn(unit, u'\uFF10');
  return isDigit ? 0 : 1;
}

std::vector<std::u16string> split(const std::u16string& version) {
  std::vector<std::u16string> components;
  if (version.empty()) return components;
  std::u16string piece(1, version[0]);
  int previous = typeOf(version[0]);
  for (std::size_t i = 1; i < version.size(); ++i) {
    const int type = typeOf(version[i]);
    if (type != previous || previous == 2) {
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

int compareSameType(int type, const std::u16string& a, const std::u16string& b) {
  if (type == 2) return 0;
  return signOf(type == 0 ? valueOf(a) - valueOf(b) : std::int64_t{a.compare(b)});
}

int compare(const std::string& first, const std::string& second) {
  const auto a = split(unitsOf(first));
  const auto b = split(unitsOf(second));
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const int ta = typeOf(a[i][0]);
    const int tb = typeOf(b[i][0]);
    if (ta != tb) {
      if (ta == 1) return -1;
      if (tb == 1) return 1;
      return ta != 0 ? -1 : 1;
    }
    if (const int result = compareSameType(ta, a[i], b[i]); result != 0) return result;
  }
  if (a.size() == b.size()) return 0;
  if (a.size() < b.size()) return typeOf(b[n][0]) == 1 ? 1 : -1;
  return typeOf(a[n][0]) == 1 ? -1 : 1;
}

}  // namespace reference

/// Makes versions out of characters that a rule may stumble over.
class RandomVersions {
 public:
  std::string next() {
    std::string version;
    for (std::size_t length = number(12); length > 0; --length) version += piece();
    return version;
  }

 private:
  std::size_t number(std::size_t below) {
    return std::uniform_int_distribution<std::size_t>(0, below - 1)(engine_);
  }

  std::string piece() {
    static constexpr std::array<const char*, 24> kPieces = {
        ".",
        ".",
        ".",
        "0",
        "1",
        "2",
        "9",
        "10",
        "2147483647",
        "2147483648",
        "a",
        "b",
        "B",
        "-",
        " ",
        "\xC3\xA9",          // small e with acute
        "\xD9\xA3",          // Arabic-Indic three, a decimal digit
        "\xEF\xBC\x95",      // fullwidth five, a decimal digit
        "\xEE\x80\x80",      // U+E000, above the surrogates by unit
        "\xEF\xBF\xBD",      // the replacement character itself
        "\xF0\x9F\x98\x80",  // beyond the first 65,536
        "\xF0\x9D\x9F\x99",  // a digit beyond the first 65,536: its units are none
        "\xFF",
        "\xE4\xB8"};  // no UTF-8
    return kPieces.at(number(kPieces.size()));
  }

  std::mt19937 engine_{20240229};
};

// --- Characters and components ---

TEST(Version, ADotByItselfIsADot) { EXPECT_EQ(typeOf("."), 2); }

TEST(Version, ATextThatOnlyBeginsWithADotIsOther) {
  EXPECT_EQ(typeOf(".."), 1);
  EXPECT_EQ(typeOf(".5"), 1);
}

TEST(Version, DecimalDigitsOfEveryScriptAreDigits) {
  EXPECT_EQ(typeOf("0"), 0);
  EXPECT_EQ(typeOf("9x"), 0);
  EXPECT_EQ(typeOf("\xD9\xA3"), 0) << "Arabic-Indic three";
  EXPECT_EQ(typeOf("\xEF\xBC\x95"), 0) << "fullwidth five";
}

TEST(Version, EverythingElseIsOther) {
  for (const char* text : {"a", "-", "_", " ", "\xC2\xB2", "\xE4\xB8\x83", "\xFF"}) {
    EXPECT_EQ(typeOf(text), 1) << text;
  }
  EXPECT_EQ(typeOf("\xF0\x9D\x9F\x99"), 1) << "a digit of two units is none";
  EXPECT_EQ(typeOf("\xF0\x90\x99\xA0"), 1) << "U+10660, though U+0660 is a digit";
}

TEST(Version, SplitsIntoRunsAndSingleDots) {
  EXPECT_EQ(split("1.2.10"), (Components{"1", ".", "2", ".", "10"}));
  EXPECT_EQ(split("10.6.8b3"), (Components{"10", ".", "6", ".", "8", "b", "3"}));
  EXPECT_EQ(split("1..2"), (Components{"1", ".", ".", "2"}));
  EXPECT_EQ(split("beta"), (Components{"beta"}));
  EXPECT_EQ(split("..."), (Components{".", ".", "."}));
}

TEST(Version, EmptyAndAbsentVersionsHaveNoComponents) {
  EXPECT_EQ(split(""), Components{});
  EXPECT_EQ(split(std::nullopt), Components{});
}

TEST(Version, MixedPunctuationAndLettersFormOneComponent) {
  EXPECT_EQ(split("1.0-beta2"), (Components{"1", ".", "0", "-beta", "2"}));
}

TEST(Version, ABlankIsOtherLikeALetter) {
  EXPECT_EQ(split("1.0 rc1"), (Components{"1", ".", "0", " rc", "1"}));
}

TEST(Version, DigitsOfAllScriptsFormOneRun) {
  EXPECT_EQ(split("1\xD9\xA3\xEF\xBC\x95x"), (Components{"1\xD9\xA3\xEF\xBC\x95", "x"}));
}

TEST(Version, ComponentsJoinedGiveTheVersionBack) {
  RandomVersions versions;
  for (int i = 0; i < 2000; ++i) {
    const std::string version = versions.next();
    std::string joined;
    for (const std::string& component : split(version)) joined += component;
    ASSERT_EQ(joined, version);
  }
}

// --- Comparison ---

struct Example {
  const char* first;
  const char* second;
  int result;
};

constexpr Example kExamples[] = {{"1.2.10", "1.2.9", 1},
                                 {"1.10", "1.9", 1},
                                 {"2.1", "10", -1},
                                 {"2.0", "2.00", 0},
                                 {"01.2", "1.2", 0},
                                 {"1.0", "1.0.0", -1},
                                 {"1.0", "1.0b1", 1},
                                 {"1.0b2", "1.0b10", -1},
                                 {"1.0a", "1.0b", -1},
                                 {"1.0B", "1.0a", -1},
                                 {"1..2", "1.2", -1},
                                 {"a1", "1", -1},
                                 {"", "", 0},
                                 {"", "1", -1},
                                 {"", "beta", 1},
                                 {"a", ".", -1},
                                 {".", "1", -1},
                                 {"1.0rc1", "1.0beta9", 1},
                                 {"1.0Beta", "1.0alpha", -1},
                                 {"1.0-beta2", "1.0-beta10", -1}};

TEST(Version, ComparesTheExamplesByRule) {
  for (const Example& example : kExamples) {
    EXPECT_EQ(compare(example.first, example.second), example.result)
        << '"' << example.first << "\" against \"" << example.second << '"';
  }
}

TEST(Version, SwappingTheVersionsNegatesTheResult) {
  for (const Example& example : kExamples) {
    EXPECT_EQ(compare(example.second, example.first), -example.result)
        << '"' << example.second << "\" against \"" << example.first << '"';
  }
}

TEST(Version, AnAbsentVersionReadsAsTheEmptyOne) {
  EXPECT_EQ(compare(std::nullopt, "1.0"), -1);
  EXPECT_EQ(compare(std::nullopt, "beta"), 1);
  EXPECT_EQ(compare(std::nullopt, std::nullopt), 0);
  EXPECT_EQ(compare(std::nullopt, ""), 0);
  EXPECT_EQ(compare("1.0", std::nullopt), 1);
}

TEST(Version, TrailingZeroComponentsAreNotIgnored) {
  EXPECT_EQ(compare("1.0", "1.0.0"), -1);
  EXPECT_EQ(compare("1", "1."), -1);
}

TEST(Version, NumbersCompareByValueAndTextsByCharacter) {
  EXPECT_EQ(compare("1.0rc1", "1.0beta9"), 1);
  EXPECT_EQ(compare("1.0Beta", "1.0alpha"), -1) << "capital letters sort first";
  EXPECT_EQ(compare("1.0b", "1.0ba"), -1);
}

TEST(Version, ADifferenceOfKindIsNotUndoneByWhatFollows) {
  for (const char* rest : {"", ".9", "999", "zzz", "...9"}) {
    EXPECT_EQ(compare(std::string("1.a") + rest, "1.0"), -1) << rest;
    EXPECT_EQ(compare("1.0", std::string("1.a") + rest), 1) << rest;
    EXPECT_EQ(compare(std::string("1..") + rest, "1.0"), -1) << rest;
  }
}

TEST(Version, NumbersOutOfRangeReadAsTheLargest) {
  EXPECT_EQ(compare("1.2147483648", "1.2147483647"), 0);
  EXPECT_EQ(compare("1.4294967297", "1.2"), 1) << "it never wraps";
  EXPECT_EQ(compare(std::string(500, '9'), "2147483647"), 0);
  EXPECT_EQ(compare(std::string(500, '0') + "7", "7"), 0);
  EXPECT_EQ(compare("2147483646", "99999999999999999999"), -1);
}

TEST(Version, CharactersOfTwoUnitsSortBelowTheLastOnesOfOneUnit) {
  EXPECT_EQ(compare("\xF0\x9F\x98\x80", "\xEE\x80\x80"), -1);
  EXPECT_EQ(compare("\xF0\x9F\x98\x80", "\xE4\xB8\xAD"), 1);
  EXPECT_EQ(compare("\xF0\x9F\x98\x80", "\xF0\x9F\x98\x81"), -1);
}

TEST(Version, TextThatIsNotUtf8IsComparedAllTheSame) {
  EXPECT_EQ(compare("1.\xFF", "1.\xFF"), 0);
  EXPECT_EQ(compare("1.\xFF", "1.0"), -1);
  EXPECT_EQ(compare("1.0\xE4\xB8", "1.0"), -1) << "a suffix of any kind makes it older";
}

TEST(Version, AgreesWithASlowImplementationOfTheRules) {
  RandomVersions versions;
  for (int i = 0; i < 50000; ++i) {
    const std::string first = versions.next();
    const std::string second = i % 10 == 0 ? first + versions.next() : versions.next();
    const int expected = reference::compare(first, second);
    ASSERT_EQ(compare(first, second), expected) << first << " against " << second;
    ASSERT_EQ(compare(second, first), -expected) << second << " against " << first;
    ASSERT_EQ(compare(first, first), 0) << first;
  }
}

TEST(Version, ComparingAllocatesNothing) {
  const std::vector<OptionalString> versions = {
      std::nullopt,
      "1.2.3",
      std::string(64, '9'),
      std::string(64, 'b'),
      std::string(64, '.'),
      "10.6.8b3-\xF0\x9F\x98\x80.\xD9\xA3\xEF\xBC\x95.release candidate 12 of 2147483648"};
  const std::uint64_t before = support::allocationCount();
  int sum = 0;
  for (const OptionalString& first : versions) {
    for (const OptionalString& second : versions) {
      sum += TQHPHelperCommunicate::compareVersion(first, second);
    }
  }
  const std::uint64_t after = support::allocationCount();
  EXPECT_EQ(after, before);
  EXPECT_EQ(sum, 0) << "as many newer as older";
}

TEST(Version, TheCountOfAllocationsCounts) {
  const std::uint64_t before = support::allocationCount();
  const Components components = split("1.2");
  EXPECT_GT(support::allocationCount(), before) << components.size();
}

}  // namespace
