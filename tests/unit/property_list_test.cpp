#include "ClientComm/platform/property_list.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ClientComm/platform/strings_file.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::dictionaryWithContentsOfFile;
using clientcomm::PropertyListDate;
using clientcomm::PropertyListDictionary;
using clientcomm::propertyListFromBytes;
using clientcomm::PropertyListUID;
using clientcomm::PropertyListValue;
using clientcomm::writeDictionaryToFile;
using clientcomm::xmlPropertyList;
using Data = PropertyListValue::Data;
using Array = PropertyListValue::Array;

constexpr std::uint64_t kLargestUnsigned = std::numeric_limits<std::uint64_t>::max();
constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

std::optional<PropertyListValue> fromXml(const std::string& body) {
  return propertyListFromBytes(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + body + "</plist>\n");
}

std::optional<PropertyListValue> roundTripped(const PropertyListValue& value) {
  const auto read = propertyListFromBytes(xmlPropertyList({{"key", value}}));
  if (!read || read->dictionary() == nullptr || read->dictionary()->count("key") != 1) {
    return std::nullopt;
  }
  return read->dictionary()->at("key");
}

Data bytes(std::initializer_list<int> values) {
  Data data;
  for (const int value : values) data.push_back(static_cast<std::byte>(value));
  return data;
}

std::string bigEndian(std::uint64_t value, std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = size; i-- > 0; value >>= 8U) {
    text[i] = static_cast<char>(static_cast<unsigned char>(value & 0xFFU));
  }
  return text;
}

// A binary property list of `objects`, of which the first is the top.
std::string binaryList(const std::vector<std::string>& objects, std::size_t referenceSize = 1,
                       std::size_t offsetSize = 4) {
  std::string text = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += bigEndian(text.size(), offsetSize);
    text += object;
  }
  const std::size_t tableOffset = text.size();
  text += table + std::string(6, '\0');
  text += static_cast<char>(offsetSize);
  text += static_cast<char>(referenceSize);
  return text + bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(tableOffset, 8);
}

std::string binaryText(const std::string& text) {
  return static_cast<char>(0x50 + static_cast<int>(text.size())) + text;
}

std::string binaryDouble(int marker, double value) {
  return static_cast<char>(marker) + bigEndian(std::bit_cast<std::uint64_t>(value), 8);
}

// A dictionary of one key, "k", whose value is `object`.
std::optional<PropertyListValue> fromBinaryEntry(const std::string& object) {
  const auto list = propertyListFromBytes(binaryList({"\xD1\x01\x02", binaryText("k"), object}));
  if (!list || list->dictionary() == nullptr || list->dictionary()->count("k") != 1) {
    return std::nullopt;
  }
  return list->dictionary()->at("k");
}

// --- Values ---

TEST(PropertyListValue, GivesItsStringOnlyWhenItIsOne) {
  EXPECT_EQ(PropertyListValue("text").stringValue(), "text");
  EXPECT_EQ(PropertyListValue("").stringValue(), "");
  EXPECT_EQ(PropertyListValue(1).stringValue(), std::nullopt);
  EXPECT_EQ(PropertyListValue(true).stringValue(), std::nullopt);
  EXPECT_EQ(PropertyListValue(Array{"text"}).stringValue(), std::nullopt);
}

TEST(PropertyListValue, HasTheTruthValueOfNumbersAndTexts) {
  const std::vector<PropertyListValue> truths = {true,  1,       -1, kLargestUnsigned, 0.5, "1",
                                                 "YES", " true", "Y"};
  const std::vector<PropertyListValue> untruths = {false,
                                                   0,
                                                   0.0,
                                                   "0",
                                                   "",
                                                   "no",
                                                   "off",
                                                   Data{},
                                                   Array{true},
                                                   PropertyListDictionary{{"a", true}},
                                                   PropertyListDate{5},
                                                   PropertyListUID{1}};
  for (const PropertyListValue& value : truths) EXPECT_TRUE(value.boolValue());
  for (const PropertyListValue& value : untruths) EXPECT_FALSE(value.boolValue());
}

// --- XML ---

TEST(PropertyList, ReadsEveryElementOfAnXmlList) {
  const auto list = fromXml(
      "<dict><key>t</key><true/><key>f</key><false/><key>i</key><integer>-42</integer>"
      "<key>r</key><real>0.1</real><key>s</key><string>a&amp;b &lt;c&gt; &#x4e2d;</string>"
      "<key>d</key><data>AAEC\n\t/w==</data><key>when</key><date>2001-01-02T00:00:01Z</date>"
      "<key>a</key><array><string/><array/><dict/></array></dict>");
  ASSERT_TRUE(list);
  const PropertyListDictionary expected = {{"t", true},
                                           {"f", false},
                                           {"i", -42},
                                           {"r", 0.1},
                                           {"s", "a&b <c> \xE4\xB8\xAD"},
                                           {"d", bytes({0, 1, 2, 255})},
                                           {"when", PropertyListDate{86401}},
                                           {"a", Array{"", Array{}, PropertyListDictionary{}}}};
  EXPECT_EQ(*list, PropertyListValue(expected));
}

TEST(PropertyList, ReadsXmlWithByteOrderMarkAndInUtf16) {
  const std::string xml = xmlPropertyList({{"key", "\xE4\xB8\xAD\xF0\x9F\x98\x80"}});
  const auto expected = propertyListFromBytes(xml);
  ASSERT_TRUE(expected);
  EXPECT_EQ(propertyListFromBytes("\xEF\xBB\xBF" + xml), expected);
  const std::string path = support::sandbox() + "/utf16.plist";
  ASSERT_TRUE(clientcomm::writeTextToFileAsUTF16(xml, path).isOk());
  EXPECT_EQ(propertyListFromBytes(support::readFile(path)), expected);
}

TEST(PropertyList, KeepsEveryTypeOfValueThroughXml) {
  const std::vector<PropertyListValue> values = {
      true,
      false,
      0,
      -1,
      kSmallest,
      kLargest,
      kLargestUnsigned,
      "",
      "text",
      "line\nbreak\ttab",
      "a < b & \"c\" > 'd'",
      "]]>",
      "\xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x98\x80",
      " blanks around ",
      "\r\n",
      Data{},
      bytes({0}),
      bytes({0, 255, 128, 7}),
      Data(1000, std::byte{0xAB}),
      PropertyListDate{0},
      PropertyListDate{-978307200},
      PropertyListUID{0},
      PropertyListUID{77},
      Array{},
      Array{1, "two", Array{3.5}},
      PropertyListDictionary{},
      PropertyListDictionary{{"", "empty key"}, {"<&>", PropertyListDictionary{{"deep", true}}}}};
  for (const PropertyListValue& value : values) {
    EXPECT_EQ(roundTripped(value), value) << xmlPropertyList({{"key", value}});
  }
}

TEST(PropertyList, KeepsEveryDigitOfARealThroughXml) {
  for (const double value : {0.1, 1.0 / 3.0, 123456789.123456789, 1e-300, 1.7976931348623157e308,
                             5e-324, -0.0, 3.0, 2.0 / 3e10}) {
    const auto read = roundTripped(value);
    ASSERT_TRUE(read);
    const auto* number = std::get_if<double>(&read->variant());
    ASSERT_NE(number, nullptr);
    EXPECT_EQ(*number, value);
    EXPECT_EQ(std::signbit(*number), std::signbit(value));
  }
  EXPECT_EQ(roundTripped(HUGE_VAL), PropertyListValue(HUGE_VAL));
  EXPECT_EQ(roundTripped(-HUGE_VAL), PropertyListValue(-HUGE_VAL));
  const auto notANumber = roundTripped(std::nan(""));
  ASSERT_TRUE(notANumber);
  EXPECT_TRUE(std::isnan(std::get<double>(notANumber->variant())));
}

TEST(PropertyList, KeepsDatesOfAllCenturiesThroughXml) {
  constexpr double kFirstOfYearOne = -63113904000.0;
  constexpr double kLastOfYear9999 = 252423993599.0;
  for (const double seconds : {kFirstOfYearOne, -3155673600.0, -2147483649.0, -2147483648.0, -1.0,
                               1.0, 2147483647.0, 2147483648.0, 64092211200.0, kLastOfYear9999}) {
    EXPECT_EQ(roundTripped(PropertyListDate{seconds}), PropertyListValue(PropertyListDate{seconds}))
        << seconds;
  }
  EXPECT_EQ(roundTripped(PropertyListDate{1e300}),
            PropertyListValue(PropertyListDate{kLastOfYear9999}));
  EXPECT_EQ(roundTripped(PropertyListDate{-1e300}),
            PropertyListValue(PropertyListDate{kFirstOfYearOne}));
  EXPECT_EQ(roundTripped(PropertyListDate{std::nan("")}), PropertyListValue(PropertyListDate{0}));
}

TEST(PropertyList, RefusesXmlThatIsCutShort) {
  const std::string xml =
      xmlPropertyList({{"a", "b"}, {"c", Array{1, PropertyListDictionary{{"d", 2}}}}});
  const std::size_t end = xml.find("</dict>\n</plist>");
  for (std::size_t length = 40; length <= end; ++length) {
    const auto list = propertyListFromBytes(std::string_view(xml).substr(0, length));
    EXPECT_TRUE(!list || list->dictionary() == nullptr) << length;
  }
}

TEST(PropertyList, RefusesMalformedXml) {
  for (const char* body :
       {"<dict><true/></dict>", "<dict><key>a</key><array></dict>", "<bogus/>",
        "<dict><key>a</key><key>b</key><true/></dict>", "text", "", "<string>&bogus;</string>",
        "<dict><!-- ></dict>", "<string><![CDATA[x</string>"}) {
    EXPECT_EQ(fromXml(body), std::nullopt) << body;
  }
  EXPECT_EQ(propertyListFromBytes(std::string_view("<plist><string>a\0b</string></plist>", 35)),
            std::nullopt);
}

TEST(PropertyList, ReadsNestingUpToALimitAndRefusesMore) {
  const auto nested = [](int depth) {
    std::string body;
    for (int i = 0; i < depth; ++i) body += "<array>";
    for (int i = 0; i < depth; ++i) body += "</array>";
    return fromXml(body);
  };
  EXPECT_TRUE(nested(100));
  EXPECT_FALSE(nested(200));
  EXPECT_FALSE(nested(500'000));
}

TEST(PropertyList, IsNotLedIntoDeepNestingByCommentsAndQuotes) {
  std::string deep;
  for (int i = 0; i < 300'000; ++i) deep += "<array>";
  EXPECT_FALSE(propertyListFromBytes("<!DOCTYPE plist [ <!-- ]><plist>" + deep + "-->"));
  EXPECT_FALSE(propertyListFromBytes("<plist><!-->" + deep + "--></plist>"));
  EXPECT_FALSE(propertyListFromBytes("<plist><!--->" + deep + "--></plist>"));
  EXPECT_FALSE(propertyListFromBytes("<?>" + deep + "?><plist/>"));
  std::string balanced = "<plist>";
  for (int i = 0; i < 100'000; ++i) balanced += "<array a=\"</array>\"><!--</array>--><array>";
  EXPECT_FALSE(propertyListFromBytes(balanced));
}

// --- Binary ---

TEST(PropertyList, ReadsEveryTypeOfABinaryList) {
  EXPECT_EQ(fromBinaryEntry("\x09"), PropertyListValue(true));
  EXPECT_EQ(fromBinaryEntry("\x08"), PropertyListValue(false));
  EXPECT_EQ(fromBinaryEntry("\x10\x2A"), PropertyListValue(42));
  EXPECT_EQ(fromBinaryEntry("\x13" + bigEndian(kLargestUnsigned - 4, 8)), PropertyListValue(-5))
      << "eight bytes are signed";
  EXPECT_EQ(fromBinaryEntry("\x14" + bigEndian(0, 8) + bigEndian(kLargestUnsigned, 8)),
            PropertyListValue(kLargestUnsigned));
  EXPECT_EQ(
      fromBinaryEntry("\x14" + bigEndian(kLargestUnsigned, 8) + bigEndian(kLargestUnsigned, 8)),
      PropertyListValue(-1));
  EXPECT_EQ(fromBinaryEntry("\x11\xFF\xFF"), PropertyListValue(65535)) << "shorter ones are not";
  EXPECT_EQ(fromBinaryEntry(binaryDouble(0x23, 0.1)), PropertyListValue(0.1));
  EXPECT_EQ(fromBinaryEntry("\x22" + bigEndian(0x3FC00000, 4)), PropertyListValue(1.5));
  EXPECT_EQ(fromBinaryEntry(binaryText("text")), PropertyListValue("text"));
  EXPECT_EQ(fromBinaryEntry(std::string("\x62\x4E\x2D\x65\x87", 5)),
            PropertyListValue("\xE4\xB8\xAD\xE6\x96\x87"));
  EXPECT_EQ(fromBinaryEntry(std::string("\x43\x00\xFF\x01", 4)),
            PropertyListValue(bytes({0, 255, 1})));
  EXPECT_EQ(fromBinaryEntry("\x80\x07"), PropertyListValue(PropertyListUID{7}));
  EXPECT_EQ(fromBinaryEntry("\xA2\x01\x01"), PropertyListValue(Array{"k", "k"}));
  EXPECT_EQ(fromBinaryEntry("\xA0"), PropertyListValue(Array{}));
  EXPECT_EQ(fromBinaryEntry("\xD0"), PropertyListValue(PropertyListDictionary{}));
}

TEST(PropertyList, ReadsDatesOfABinaryListWithTheirFractions) {
  for (const double seconds : {0.0, 1.5, -0.25, -86400.25, 700000000.125, 64092211200.0, 1e300}) {
    EXPECT_EQ(fromBinaryEntry(binaryDouble(0x33, seconds)),
              PropertyListValue(PropertyListDate{seconds}));
  }
}

TEST(PropertyList, ReadsANulInAStringOfABinaryList) {
  EXPECT_EQ(fromBinaryEntry(std::string("\x53"
                                        "a\0b",
                                        4)),
            PropertyListValue(std::string("a\0b", 3)));
}

TEST(PropertyList, RefusesAnObjectOfABinaryListThatReachesBeyondTheObjects) {
  EXPECT_EQ(fromBinaryEntry("\x42xy"),
            PropertyListValue(PropertyListValue::Data{std::byte{'x'}, std::byte{'y'}}));
  for (const char* object : {"\x43xy", "\x53xy", "\x61x", "\xA1", "\xD1\x01"}) {
    EXPECT_EQ(fromBinaryEntry(object), std::nullopt) << object;
  }
}

TEST(PropertyList, RefusesAnAsciiStringOfABinaryListThatIsNot) {
  EXPECT_EQ(fromBinaryEntry("\x51\xFF"), std::nullopt);
  EXPECT_EQ(fromBinaryEntry("\x52\xC3\xBC"), std::nullopt);
}

TEST(PropertyList, RefusesKeysOfABinaryListThatAreNoStrings) {
  for (const char* key : {"\x10\x05", "\xA0", "\x09"}) {
    EXPECT_FALSE(propertyListFromBytes(binaryList({"\xD1\x01\x02", key, binaryText("value")})));
  }
}

TEST(PropertyList, RefusesABinaryListThatIsCutShort) {
  const std::string list =
      binaryList({"\xD2\x01\x02\x02\x01", binaryText("key"), binaryText("value")});
  ASSERT_TRUE(propertyListFromBytes(list));
  for (std::size_t length = 0; length < list.size(); ++length) {
    const auto read = propertyListFromBytes(std::string_view(list).substr(0, length));
    EXPECT_TRUE(!read || read->dictionary() == nullptr || read->dictionary()->empty()) << length;
  }
}

TEST(PropertyList, SurvivesEveryChangedByteOfABinaryList) {
  const std::string list = binaryList({"\xD3\x01\x02\x03\x04\x05\x06", binaryText("key"),
                                       binaryText("b"), binaryText("c"), "\x13" + bigEndian(77, 8),
                                       "\xA2\x04\x06", std::string("\x62\x4E\x2D\x65\x87", 5)});
  ASSERT_TRUE(propertyListFromBytes(list));
  int readable = 0;
  for (std::size_t at = 0; at < list.size(); ++at) {
    for (int value = 0; value < 256; value += 5) {
      std::string changed = list;
      changed[at] = static_cast<char>(static_cast<unsigned char>(value));
      readable += propertyListFromBytes(changed) ? 1 : 0;
    }
  }
  EXPECT_GT(readable, 50);
}

TEST(PropertyList, RefusesABinaryListThatContainsItself) {
  EXPECT_FALSE(propertyListFromBytes(binaryList({"\xA1\x01", std::string("\xA1\x00", 2)})));
  EXPECT_FALSE(propertyListFromBytes(binaryList({std::string("\xA1\x00", 2)})));
}

TEST(PropertyList, RefusesABinaryListNestedTooDeep) {
  std::vector<std::string> objects;
  for (std::uint64_t i = 1; i <= 300'000; ++i) objects.push_back("\xA1" + bigEndian(i, 4));
  objects.push_back("\xA0");
  EXPECT_FALSE(propertyListFromBytes(binaryList(objects, 4)));
}

TEST(PropertyList, RefusesABinaryListThatUnfoldsBeyondMeasure) {
  std::vector<std::string> objects;
  for (std::uint64_t i = 1; i <= 40; ++i) {
    objects.push_back("\xA2" + bigEndian(i, 1) + bigEndian(i, 1));
  }
  objects.push_back(binaryText("end"));
  EXPECT_FALSE(propertyListFromBytes(binaryList(objects)));
}

TEST(PropertyList, ReadsABinaryListWithSharedValues) {
  const auto list = propertyListFromBytes(binaryList(
      {"\xD2\x01\x02\x03\x03", binaryText("a"), binaryText("b"), "\xA2\x04\x04", "\x10\x07"}));
  const Array sevens = {7, 7};
  EXPECT_EQ(list, PropertyListValue(PropertyListDictionary{{"a", sevens}, {"b", sevens}}));
}

TEST(PropertyList, RefusesWhatIsLargerThanAnySettings) {
  std::string text(std::size_t{17} << 20U, ' ');
  EXPECT_FALSE(propertyListFromBytes(text));
}

TEST(PropertyList, ReadsManyKeysQuickly) {
  PropertyListDictionary large;
  for (int i = 0; i < 20'000; ++i) large.emplace("key " + std::to_string(i), i);
  // The time of this process alone: a busy machine must not count.
  const std::clock_t start = std::clock();
  EXPECT_EQ(propertyListFromBytes(xmlPropertyList(large)), PropertyListValue(large));
  EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

}  // namespace
