// What an XML property list may hold to be read, and that what is written is XML to every reader.

#include <expat.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/character_encoding.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/support/test_sandbox.h"

namespace {

using namespace std::literals;  // of texts with a NUL
using clientcomm::PropertyListDate;
using clientcomm::PropertyListDictionary;
using clientcomm::propertyListFromBytes;
using clientcomm::PropertyListValue;
using clientcomm::xmlPropertyList;
using Data = PropertyListValue::Data;

constexpr const char* kPublicDoctype =
    "<!DOCTYPE plist PUBLIC \"-//Example//DTD PLIST 1.0//EN\" \"file:///nowhere/plist.dtd\">";

std::optional<PropertyListValue> fromBody(const std::string& body,
                                          const std::string& doctype = "") {
  return propertyListFromBytes("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + doctype +
                               "<plist version=\"1.0\">" + body + "</plist>\n");
}

// A list of one string, whose bytes are `text` in the `declared` encoding.
std::optional<PropertyListValue> fromEncoding(const std::string& declared,
                                              const std::string& text) {
  return propertyListFromBytes("<?xml version='1.0' encoding='" + declared + "'?><plist><string>" +
                               text + "</string></plist>");
}

// Whether XML readers in general accept `xml`.
bool isWellFormed(const std::string& xml) {
  const XML_Parser parser = XML_ParserCreate("UTF-8");
  const auto status = XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), XML_TRUE);
  XML_ParserFree(parser);
  return status == XML_STATUS_OK;
}

TEST(XmlPropertyList, MayQuoteInEitherWayAndHaveAngleBracketsInAttributes) {
  const std::string dictionary = "<dict><key>k</key><string>v</string></dict></plist>";
  const PropertyListValue expected(PropertyListDictionary{{"k", "v"}});
  EXPECT_EQ(propertyListFromBytes("<?xml version='1.0' encoding='UTF-8'?>"
                                  "<!DOCTYPE plist SYSTEM 'file:///nowhere/a>b.dtd'>"
                                  "<plist version='1.0'>" +
                                  dictionary),
            expected);
  EXPECT_EQ(propertyListFromBytes("<plist version=\"1>0\" other='<'>" + dictionary), std::nullopt)
      << "a \"<\" in an attribute is malformed";
  EXPECT_EQ(propertyListFromBytes("<plist version=\"1>0\" other='\"/>'>" + dictionary), expected);
}

TEST(XmlPropertyList, NeedsNoPlistElementAroundIt) {
  EXPECT_EQ(propertyListFromBytes("<dict><key>k</key><true/></dict>"),
            PropertyListValue(PropertyListDictionary{{"k", true}}));
  EXPECT_EQ(propertyListFromBytes("<?xml version=\"1.0\"?><array/>"),
            PropertyListValue(PropertyListValue::Array{}));
}

TEST(XmlPropertyList, MayHaveCommentsAndInstructionsAnywhere) {
  EXPECT_EQ(propertyListFromBytes("\n<?a b?><!-- > -- ><plist><?c?><!----></plist>"), std::nullopt);
  EXPECT_EQ(propertyListFromBytes("\n<?a ?><!-- < > ]]> --><plist><?c?>"
                                  "<integer>1<!-- <integer> -->2</integer></plist><!-- end -->\n"),
            PropertyListValue(12));
  EXPECT_EQ(fromBody("<string>a<![CDATA[<b>&amp;]]>c</string>"), PropertyListValue("a<b>&amp;c"));
}

TEST(XmlPropertyList, MayHaveADoctypeWithAnInternalSubset) {
  const std::string subset =
      "<!DOCTYPE plist [\n<!-- ]> -->\n<!ELEMENT plist (dict|array)>\n"
      "<!ATTLIST plist version CDATA \"1.0\">\n<?a b?>\n<!NOTATION n SYSTEM 'x'>\n]>";
  EXPECT_EQ(fromBody("<dict><key>k</key><real>1.5</real></dict>", subset),
            PropertyListValue(PropertyListDictionary{{"k", 1.5}}));
}

TEST(XmlPropertyList, MayNotDeclareEntities) {
  for (const char* subset :
       {"<!DOCTYPE plist [<!ENTITY e \"text\">]>", "<!DOCTYPE plist [<!ENTITY % e \"text\">]>",
        "<!DOCTYPE plist [<!ENTITY e SYSTEM \"file:///etc/hostname\">]>",
        "<!DOCTYPE plist SYSTEM \"x\" [<!ENTITY % e SYSTEM \"file:///etc/hostname\"> %e;]>"}) {
    EXPECT_EQ(fromBody("<string>a</string>", subset), std::nullopt) << subset;
    EXPECT_EQ(fromBody("<string>a&e;</string>", subset), std::nullopt) << subset;
  }
  std::string laughs = "<!DOCTYPE plist [<!ENTITY a0 \"ha\">";
  for (int i = 1; i < 60; ++i) {
    const std::string inner = "&a" + std::to_string(i - 1) + ";";
    laughs += "<!ENTITY a" + std::to_string(i) + " \"" + inner + inner + "\">";
  }
  EXPECT_EQ(fromBody("<string>&a59;</string>", laughs + "]>"), std::nullopt);
}

TEST(XmlPropertyList, IsRefusedWithAnUnknownEntity) {
  EXPECT_EQ(fromBody("<string>a&nbsp;b</string>"), std::nullopt);
  EXPECT_EQ(fromBody("<string>a&nbsp;b</string>", kPublicDoctype), std::nullopt)
      << "although it may be declared in the file that the DOCTYPE names";
  EXPECT_EQ(fromBody("<string>&lt;&gt;&amp;&quot;&apos;&#65;&#x1F600;</string>", kPublicDoctype),
            PropertyListValue("<>&\"'A\xF0\x9F\x98\x80"));
}

TEST(XmlPropertyList, IsReadInItsDeclaredEncoding) {
  EXPECT_EQ(fromEncoding("ISO-8859-1", "f\xFCr \xA3"), PropertyListValue("f\xC3\xBCr \xC2\xA3"));
  EXPECT_EQ(fromEncoding("iso-8859-2", "\xB1"), PropertyListValue("\xC4\x85"));
  EXPECT_EQ(fromEncoding("ISO-8859-15", "\xA4"), PropertyListValue("\xE2\x82\xAC"));
  EXPECT_EQ(fromEncoding("windows-1252", "\x80"), PropertyListValue("\xE2\x82\xAC"));
  EXPECT_EQ(fromEncoding("windows-1251", "\xC6"), PropertyListValue("\xD0\x96"));
  EXPECT_EQ(fromEncoding("KOI8-R", "\xF6"), PropertyListValue("\xD0\x96"));
  EXPECT_EQ(fromEncoding("GBK", "\xD6\xD0"), PropertyListValue("\xE4\xB8\xAD"));
  EXPECT_EQ(fromEncoding("Shift_JIS", "\x92\x86"), PropertyListValue("\xE4\xB8\xAD"));
  EXPECT_EQ(fromEncoding("US-ASCII", "plain"), PropertyListValue("plain"));
  EXPECT_EQ(fromEncoding("utf8", "\xC3\xBC"), PropertyListValue("\xC3\xBC"));
}

TEST(XmlPropertyList, IsRefusedWhereItsBytesAreNotInItsEncoding) {
  EXPECT_EQ(fromEncoding("UTF-8", "f\xFCr"), std::nullopt);
  EXPECT_EQ(fromEncoding("US-ASCII", "f\xFCr"), std::nullopt);
  EXPECT_EQ(fromEncoding("utf8", "f\xFCr"), std::nullopt);
  EXPECT_EQ(fromEncoding("GBK", "\xFF\xFF"), std::nullopt);
  EXPECT_EQ(fromEncoding("Shift_JIS", "\x92"), std::nullopt);
  EXPECT_EQ(fromEncoding("UTF-16", "text"), std::nullopt);
  EXPECT_EQ(propertyListFromBytes("<plist><string>f\xFCr</string></plist>"), std::nullopt);
}

TEST(XmlPropertyList, IsRefusedInAnEncodingThatIsNotKnown) {
  for (const char* encoding : {"x-unknown", "ISO-2022-JP", "UTF-7", "ISO-8859-99", "IBM1047"}) {
    EXPECT_EQ(fromEncoding(encoding, "text"), std::nullopt) << encoding;
  }
  EXPECT_EQ(clientcomm::utf8FromEncoding("text", "WINDOWS-1252//IGNORE"), std::nullopt)
      << "a name with an option of iconv's is no encoding";
}

TEST(XmlPropertyList, IsReadAsItsByteOrderMarkSaysWhateverItDeclares) {
  const std::string xml =
      "<?xml version='1.0' encoding='ISO-8859-1'?><plist><string>\xC3\xBC</string></plist>";
  EXPECT_EQ(propertyListFromBytes("\xEF\xBB\xBF" + xml), PropertyListValue("\xC3\xBC"));
  std::string utf16;
  for (const char c :
       "<?xml version='1.0' encoding='UTF-16'?><plist><string>a</string></plist>"sv) {
    utf16 += c;
    utf16 += '\0';
  }
  EXPECT_EQ(propertyListFromBytes("\xFF\xFE" + utf16), PropertyListValue("a"));
  EXPECT_EQ(propertyListFromBytes(utf16), PropertyListValue("a")) << "and without a mark";
  EXPECT_EQ(propertyListFromBytes(std::string(1, '\0') + utf16.substr(0, utf16.size() - 1)),
            PropertyListValue("a"));
}

TEST(XmlPropertyList, ReadsIntegersOf64BitsInDecimalAndHexadecimal) {
  constexpr auto kSmallest = std::numeric_limits<std::int64_t>::min();
  constexpr auto kLargest = std::numeric_limits<std::uint64_t>::max();
  const auto read = [](const std::string& text) {
    return fromBody("<integer>" + text + "</integer>");
  };
  EXPECT_EQ(read("0050"), PropertyListValue(50)) << "not octal";
  EXPECT_EQ(read("-007"), PropertyListValue(-7));
  EXPECT_EQ(read("+5"), PropertyListValue(5));
  EXPECT_EQ(read("-0"), PropertyListValue(0));
  EXPECT_EQ(read("\n\t12 "), PropertyListValue(12));
  EXPECT_EQ(read("0x1F"), PropertyListValue(31));
  EXPECT_EQ(read("18446744073709551615"), PropertyListValue(kLargest));
  EXPECT_EQ(read("-9223372036854775808"), PropertyListValue(kSmallest));
  for (const char* text :
       {"18446744073709551616", "-9223372036854775809", "99999999999999999999999", "", " ", "-",
        "12a", "1 2", "1.5", "- 5", "--5", "0x", "0xG", "1,000", "five", "1e3", "\xD9\xA1"}) {
    EXPECT_EQ(read(text), std::nullopt) << text;
  }
  EXPECT_EQ(fromBody("<integer/>"), std::nullopt);
}

TEST(XmlPropertyList, ReadsRealsWhole) {
  const auto read = [](const std::string& text) { return fromBody("<real>" + text + "</real>"); };
  EXPECT_EQ(read("1.5"), PropertyListValue(1.5));
  EXPECT_EQ(read(" -.5E+1 "), PropertyListValue(-5.0));
  EXPECT_EQ(read("+3."), PropertyListValue(3.0));
  EXPECT_EQ(read("007"), PropertyListValue(7.0));
  EXPECT_EQ(read("0e-400"), PropertyListValue(0.0));
  EXPECT_EQ(read("2.5e-324"), PropertyListValue(std::numeric_limits<double>::denorm_min()));
  EXPECT_EQ(read("-INF"), PropertyListValue(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ(read("+infinity"), PropertyListValue(std::numeric_limits<double>::infinity()));
  for (const char* text : {"", ".", "1.5x", "1,5", "e5", "1e", "1e+", "0x1p3", "1.5 2", "nan(1)",
                           "infinit", "--1", "+-1", "1e999", "-1e999", "1e-400", "-2.4e-324"}) {
    EXPECT_EQ(read(text), std::nullopt) << text;
  }
}

TEST(XmlPropertyList, ReadsDatesOfTheCalendar) {
  const auto read = [](const std::string& text) { return fromBody("<date>" + text + "</date>"); };
  EXPECT_EQ(read("2001-01-01T00:00:01Z"), PropertyListValue(PropertyListDate{1}));
  EXPECT_EQ(read("2000-02-29T23:59:59Z"), PropertyListValue(PropertyListDate{-26438401}));
  for (const char* text :
       {"", "2001-01-01", "2001-01-01T00:00:00", "2001-01-01 00:00:00Z", "2001-02-29T00:00:00Z",
        "2001-13-01T00:00:00Z", "2001-00-01T00:00:00Z", "2001-01-00T00:00:00Z",
        "2001-01-01T24:00:00Z", "2001-01-01T00:60:00Z", "2001-01-01T00:00:60Z",
        "2001-01-01T00:00:00Zx", "0000-01-01T00:00:00Z", "-001-01-01T00:00:00Z",
        "2001-1-1T00:00:00Z", "2001-01-01T00:00:00.5Z", "12001-01-01T00:00:00Z", "today"}) {
    EXPECT_EQ(read(text), std::nullopt) << text;
  }
}

TEST(XmlPropertyList, ReadsBase64Whole) {
  const auto read = [](const std::string& text) { return fromBody("<data>" + text + "</data>"); };
  EXPECT_EQ(read("\n\tAA\n EC\r\n\t/w==\n"),
            PropertyListValue(Data{std::byte{0}, std::byte{1}, std::byte{2}, std::byte{255}}));
  EXPECT_EQ(read(""), PropertyListValue(Data{}));
  for (const char* text : {"A", "AA", "AAA", "AA=", "AAA==", "A===", "=", "AA==AA==", "AA=A",
                           "AA.A", "AAEC!", "A-_A", "AA==x"}) {
    EXPECT_EQ(read(text), std::nullopt) << text;
  }
}

TEST(XmlPropertyList, ReadsAnEmptyKey) {
  const PropertyListValue expected(PropertyListDictionary{{"", "v"}});
  EXPECT_EQ(fromBody("<dict><key/><string>v</string></dict>"), expected);
  EXPECT_EQ(fromBody("<dict><key></key><string>v</string></dict>"), expected);
}

TEST(XmlPropertyList, IsRefusedWholeWhereAnyPartIsMalformed) {
  for (const char* body :
       {"<dict><key>a</key></dict>", "<dict><key>a</key><true/><key>b</key></dict>",
        "<dict><string>a</string></dict>", "<dict>text</dict>", "<array>text</array>",
        "<dict><key>a</key>text<true/></dict>", "<true>yes</true>", "<true/><true/>",
        "<array><key>a</key></array>", "<key>a</key>", "<dict/>text", "<string>a<b/></string>",
        "<dict><key>a<true/></key><true/></dict>", "<plist><true/></plist>", "<Dict/>", "<x:dict/>",
        "<string>\x01</string>", "<string>&#1;</string>", "<string>\xEF\xBF\xBF</string>"}) {
    EXPECT_EQ(fromBody(body), std::nullopt) << body;
  }
  EXPECT_EQ(fromBody("<string>a\0b</string>"s), std::nullopt);
}

TEST(XmlPropertyList, IsRefusedWithAnythingBehindIt) {
  const std::string xml = xmlPropertyList({{"k", "v"}});
  ASSERT_TRUE(propertyListFromBytes(xml));
  for (const std::string& rest :
       {"x"s, "<plist/>"s, "</plist>"s, "\0"s, "<!DOCTYPE plist>"s, "&amp;"s}) {
    EXPECT_EQ(propertyListFromBytes(xml + rest), std::nullopt) << rest;
  }
  EXPECT_TRUE(propertyListFromBytes(xml + "\n <!-- c --> \n"));
}

TEST(XmlPropertyList, OfNoBytesIsNone) {
  EXPECT_EQ(propertyListFromBytes(""), std::nullopt);
  EXPECT_EQ(fromBody(""), std::nullopt);
}

// --- Written ---

// Strings that XML cannot hold as they are.
std::vector<std::string> hardStrings() {
  std::vector<std::string> strings = {"/home/\xFF\xC3/x",
                                      "a\0b"s,
                                      "\0"s,
                                      "\xED\xA0\x80",
                                      "\xEF\xBF\xBE",
                                      "\xC3",
                                      "\xF0\x9F\x98\x80\xFF",
                                      "\xEF\xBF\xBD\x01",
                                      "%FF\xFF"};
  for (int c = 0; c < 256; ++c) strings.push_back("x" + std::string(1, static_cast<char>(c)));
  return strings;
}

TEST(XmlPropertyList, IsWellFormedWhateverItsStringsHold) {
  for (const std::string& text : hardStrings()) {
    const PropertyListDictionary list = {
        {"value", text}, {text, text}, {"nested", PropertyListValue::Array{text, Data{}}}};
    const std::string xml = xmlPropertyList(list);
    EXPECT_TRUE(isWellFormed(xml)) << xml;
    EXPECT_EQ(propertyListFromBytes(xml), PropertyListValue(list)) << xml;
  }
}

TEST(XmlPropertyList, GivesOtherReadersTheBytesOfAStringThatXmlCannotHold) {
  const std::string xml = xmlPropertyList({{"path", "/home/\xFF"}, {"50%\x01", "v"}});
  EXPECT_NE(xml.find("<?clientcomm string?>\n\t<data>L2hvbWUv/w==</data>"), std::string::npos)
      << xml;
  EXPECT_NE(xml.find("<?clientcomm percent-encoded?>\n\t<key>50%25%01</key>"), std::string::npos)
      << xml;
}

TEST(XmlPropertyList, KeepsDataApartFromStringsWrittenAsData) {
  const Data bytes = {std::byte{0xFF}};
  EXPECT_EQ(fromBody("<data>/w==</data>"), PropertyListValue(bytes));
  EXPECT_EQ(fromBody("<?clientcomm string?><data>/w==</data>"), PropertyListValue("\xFF"));
  EXPECT_EQ(fromBody("<array><?clientcomm string?><integer>1</integer><data>/w==</data></array>"),
            PropertyListValue(PropertyListValue::Array{1, bytes}))
      << "it says something of the next element only";
  EXPECT_EQ(fromBody("<dict><key>50%25</key><true/></dict>"),
            PropertyListValue(PropertyListDictionary{{"50%25", true}}));
}

TEST(XmlPropertyList, KeepsUserDefaultsThatXmlCannotHold) {
  const std::string domain = "com.example.bytes";
  clientcomm::UserDefaults defaults(domain);
  const std::vector<std::string> strings = hardStrings();
  for (const std::string& text : strings) defaults.setObject(text, "key " + text);
  ASSERT_TRUE(defaults.synchronize());
  clientcomm::UserDefaults again(domain);
  for (const std::string& text : strings) EXPECT_EQ(again.stringForKey("key " + text), text);
}

}  // namespace
