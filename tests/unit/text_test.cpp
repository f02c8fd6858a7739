#include "ClientComm/platform/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/character_class.h"
#include "ClientComm/platform/characters.h"

namespace {

using clientcomm::boolValue;
using clientcomm::intValue;
using clientcomm::isDecimalDigit;
using clientcomm::takeCharacter;
using clientcomm::utf16Length;
using namespace std::string_view_literals;

std::vector<char32_t> charactersOf(std::string_view text) {
  std::vector<char32_t> characters;
  while (!text.empty()) characters.push_back(takeCharacter(text));
  return characters;
}

std::string encoded(char32_t c) {
  const auto byte = [](char32_t bits) {
    return static_cast<char>(static_cast<unsigned char>(bits));
  };
  if (c < 0x80) return {byte(c)};
  if (c < 0x800) return {byte(0xC0 | (c >> 6)), byte(0x80 | (c & 0x3F))};
  if (c < 0x10000) {
    return {byte(0xE0 | (c >> 12)), byte(0x80 | ((c >> 6) & 0x3F)), byte(0x80 | (c & 0x3F))};
  }
  return {byte(0xF0 | (c >> 18)), byte(0x80 | ((c >> 12) & 0x3F)), byte(0x80 | ((c >> 6) & 0x3F)),
          byte(0x80 | (c & 0x3F))};
}

TEST(Text, TakesEveryCharacterOfUnicodeWhole) {
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const std::string text = encoded(c) + "x";
    std::string_view rest = text;
    ASSERT_EQ(takeCharacter(rest), c);
    ASSERT_EQ(rest, "x");
    ASSERT_EQ(utf16Length(text), c > 0xFFFF ? 3U : 2U);
  }
}

TEST(Text, TakesOneByteOfAnythingThatIsNotWellFormed) {
  constexpr char32_t kBad = 0xFFFD;
  EXPECT_EQ(charactersOf("a\x80z"), (std::vector<char32_t>{'a', kBad, 'z'}));
  EXPECT_EQ(charactersOf("\xC0\xAF"), (std::vector<char32_t>{kBad, kBad})) << "overlong";
  EXPECT_EQ(charactersOf("\xE0\x80\xAF"), (std::vector<char32_t>{kBad, kBad, kBad})) << "overlong";
  EXPECT_EQ(charactersOf("\xF0\x80\x80\xAF"), (std::vector<char32_t>(4, kBad))) << "overlong";
  EXPECT_EQ(charactersOf("\xED\xA0\x80"), (std::vector<char32_t>(3, kBad))) << "surrogate";
  EXPECT_EQ(charactersOf("\xF4\x90\x80\x80"), (std::vector<char32_t>(4, kBad))) << "past the end";
  EXPECT_EQ(charactersOf("\xFF\xFE"), (std::vector<char32_t>{kBad, kBad}));
  EXPECT_EQ(charactersOf("\xE4\xB8"), (std::vector<char32_t>{kBad, kBad})) << "cut short";
  EXPECT_EQ(charactersOf("\xC3x"), (std::vector<char32_t>{kBad, 'x'})) << "next one is kept";
}

TEST(Text, CountsUtf16UnitsAsThePlatformDoes) {
  EXPECT_EQ(utf16Length(""), 0U);
  EXPECT_EQ(utf16Length("abc"), 3U);
  EXPECT_EQ(utf16Length("a\0b"sv), 3U);
  EXPECT_EQ(utf16Length("\xE4\xB8\xAD\xE6\x96\x87"), 2U);
  EXPECT_EQ(utf16Length("\xF0\x9F\x98\x80"), 2U) << "a character beyond the BMP is two units";
  EXPECT_EQ(utf16Length("\xFF\xFF"), 2U) << "each stray byte counts as one";
}

TEST(Text, KnowsTheUnicodeDecimalDigits) {
  for (char16_t unit = u'0'; unit <= u'9'; ++unit) EXPECT_TRUE(isDecimalDigit(unit));
  EXPECT_TRUE(isDecimalDigit(u'\u0663')) << "Arabic-Indic three";
  EXPECT_TRUE(isDecimalDigit(u'\u0967')) << "Devanagari one";
  EXPECT_TRUE(isDecimalDigit(u'\uFF15')) << "fullwidth five";
  EXPECT_FALSE(isDecimalDigit(u'\u00B2')) << "superscript two";
  EXPECT_FALSE(isDecimalDigit(u'\u2167')) << "Roman numeral eight";
  EXPECT_FALSE(isDecimalDigit(u'\u4E03')) << "ideograph seven";
  for (const char16_t unit : u"./:aZ \u00E9"sv) EXPECT_FALSE(isDecimalDigit(unit));
}

TEST(Text, HoldsNoSurrogateForADigit) {
  for (std::uint32_t unit = 0xD800; unit <= 0xDFFF; ++unit) {
    EXPECT_FALSE(isDecimalDigit(static_cast<char16_t>(unit)));
  }
}

TEST(Text, ReadsTheLeadingDecimalInteger) {
  EXPECT_EQ(intValue("0"), 0);
  EXPECT_EQ(intValue("007"), 7);
  EXPECT_EQ(intValue("-3"), -3);
  EXPECT_EQ(intValue("+3"), 3);
  EXPECT_EQ(intValue(" \t\n12abc"), 12);
  EXPECT_EQ(intValue("1.9"), 1);
  EXPECT_EQ(intValue("1\0002"sv), 1) << "an embedded NUL is a character like any other";
}

TEST(Text, ReadsZeroWhereThereIsNoInteger) {
  for (const char* text :
       {"", " ", "abc", "-", "+", "--1", "+-1", "- 1", ".5", "\xEF\xBC\x95", "\x80"}) {
    EXPECT_EQ(intValue(text), 0) << text;
  }
}

TEST(Text, SaturatesAnIntegerOutOfRange) {
  using Limits = std::numeric_limits<std::int32_t>;
  EXPECT_EQ(intValue("2147483647"), Limits::max());
  EXPECT_EQ(intValue("2147483648"), Limits::max());
  EXPECT_EQ(intValue("-2147483648"), Limits::min());
  EXPECT_EQ(intValue("-2147483649"), Limits::min());
  EXPECT_EQ(intValue("4294967297"), Limits::max()) << "it never wraps";
  EXPECT_EQ(intValue(std::string(5000, '9')), Limits::max());
  EXPECT_EQ(intValue("-" + std::string(5000, '9')), Limits::min());
  EXPECT_EQ(intValue(std::string(5000, '0') + "5"), 5);
}

TEST(Text, ReadsTruthFromTheFirstTellingCharacter) {
  for (const char* text : {"Y", "y", "yes", "T", "true", "1", "9", "  1", "+1", "-1", "001", "-007",
                           " +0Y", "10", "\tYes", "0t"}) {
    EXPECT_TRUE(boolValue(text)) << text;
  }
  for (const char* text :
       {"", "0", "00", "N", "no", "false", "on", "-", "+", "--1", "x1", "0.5", "- 1", "0 1"}) {
    EXPECT_FALSE(boolValue(text)) << text;
  }
}

}  // namespace
