#include "ClientComm/platform/strings_file.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/property_list.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::descriptionInStringsFileFormat;
using clientcomm::dictionaryWithContentsOfFile;
using clientcomm::PropertyListDictionary;
using clientcomm::propertyListFromBytes;
using clientcomm::PropertyListValue;
using clientcomm::writeTextToFileAsUTF16;
using Array = PropertyListValue::Array;
using Data = PropertyListValue::Data;

PropertyListValue dictionary(PropertyListDictionary entries) { return PropertyListValue(entries); }

// `text`, which is ASCII, in UTF-16 with byte-order mark.
std::string utf16(std::string_view text, bool isBigEndian) {
  std::string bytes = isBigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (const char c : text) bytes.append(isBigEndian ? std::string{'\0', c} : std::string{c, '\0'});
  return bytes;
}

std::optional<PropertyListValue> valueOf(const std::string& text) {
  const auto list = propertyListFromBytes("key = " + text + ";");
  if (!list || list->dictionary() == nullptr) return std::nullopt;
  return list->dictionary()->at("key");
}

TEST(StringsFile, ReadsEntriesWithCommentsOfBothKinds) {
  EXPECT_EQ(propertyListFromBytes(
                "/* Tips \" = ; */\n\"TipsEnable\" = \"1\";\n"
                "// a line\n\"EnableAD\"=\"0\"; /**/ \"a\" /* in */ = // between\n \"b\" ;\n"),
            dictionary({{"TipsEnable", "1"}, {"EnableAD", "0"}, {"a", "b"}}));
}

TEST(StringsFile, ReadsUnquotedWordsAndBothKindsOfQuotes) {
  EXPECT_EQ(
      propertyListFromBytes("TipsEnable = 1; 'single \"quoted\"' = 'it\\'s'; a.b_c-d$e:f/g = h;"),
      dictionary({{"TipsEnable", "1"}, {"single \"quoted\"", "it's"}, {"a.b_c-d$e:f/g", "h"}}));
}

TEST(StringsFile, ReadsAKeyAloneAsItsOwnValue) {
  EXPECT_EQ(propertyListFromBytes("\"a\"; b; \"c\" = \"d\";"),
            dictionary({{"a", "a"}, {"b", "b"}, {"c", "d"}}));
}

TEST(StringsFile, IsMalformedWithoutItsLastSemicolon) {
  EXPECT_EQ(propertyListFromBytes("\"a\" = \"b\"; \"c\" = \"d\""), std::nullopt);
  EXPECT_EQ(propertyListFromBytes("\"a\" = \"b\"; \"c\""), std::nullopt);
  EXPECT_EQ(propertyListFromBytes("\"a\" = \"b\" /* open"), std::nullopt);
  EXPECT_EQ(propertyListFromBytes("{ a = b; c = d }"), std::nullopt);
}

TEST(StringsFile, KeepsTheEntriesBeforeWhatCutsItOff) {
  const auto expected = dictionary({{"a", "b"}, {"c", "d"}});
  const std::string entries = "\"a\" = \"b\"; c = d;";
  for (const char* end : {"/* open", "\n /*", "// line", "\"", "\"key", "'key", "\"key\\",
                          "\"key\\\"", "}", " }\n// comment\n", "} /* open"}) {
    EXPECT_EQ(propertyListFromBytes(entries + end), expected) << end;
    EXPECT_EQ(propertyListFromBytes(utf16(entries + end, false)), expected) << end;
  }
}

TEST(StringsFile, IsMalformedWhereAnEntryIsCutOff) {
  for (const char* end : {"\"key\" = \"value", "key = /* open", "key /* open", "} key = value;",
                          "}}", "= value;", ")", "\"key\" = {", "\"key\" = (a"}) {
    EXPECT_EQ(propertyListFromBytes(std::string("\"a\" = \"b\"; ") + end), std::nullopt) << end;
  }
}

TEST(StringsFile, IsStrictAtTheEndWhereItIsAPropertyListProper) {
  for (const char* end : {"/* open", "\"", "}"}) {
    EXPECT_EQ(propertyListFromBytes(std::string("{ a = b; } ") + end), std::nullopt) << end;
  }
}

TEST(StringsFile, ReadsEscapes) {
  EXPECT_EQ(valueOf(R"("\"\\\n\t\r\a\q")"), PropertyListValue("\"\\\n\t\r\aq"));
  EXPECT_EQ(valueOf(R"("\101\0412\7x")"), PropertyListValue("A!2\ax"));
  EXPECT_EQ(valueOf(R"("\U4e2d\U6587")"), PropertyListValue("\xE4\xB8\xAD\xE6\x96\x87"));
  EXPECT_EQ(valueOf(R"("\Ue9!\U41 ")"), PropertyListValue("\xC3\xA9!A "))
      << "fewer than four digits";
  EXPECT_EQ(valueOf(R"("\344")"), PropertyListValue("\xC3\xAE"))
      << "an octal escape is in the format's own 8-bit set";
  EXPECT_EQ(valueOf("\"a\\\nb\""), PropertyListValue("a\nb"));
}

TEST(StringsFile, JoinsEscapedSurrogatePairs) {
  EXPECT_EQ(valueOf(R"("\UD83D\UDE00")"), PropertyListValue("\xF0\x9F\x98\x80"));
  EXPECT_EQ(valueOf(R"("\UD83Dx")"), PropertyListValue("\xEF\xBF\xBDx"));
  EXPECT_EQ(valueOf(R"("\UDE00")"), PropertyListValue("\xEF\xBF\xBD"));
  EXPECT_EQ(valueOf(R"("\UD83D\U0041")"), PropertyListValue("\xEF\xBF\xBD"
                                                            "A"));
  EXPECT_EQ(valueOf(R"("\UD83D\UD83D\UDE00")"), PropertyListValue("\xEF\xBF\xBD\xF0\x9F\x98\x80"));
}

TEST(StringsFile, ReadsUtf16OfBothByteOrdersAndUtf8WithAndWithoutMark) {
  constexpr std::string_view kText = "/* x */ \"TipsEnable\" = \"1\";\n";
  const auto expected = dictionary({{"TipsEnable", "1"}});
  EXPECT_EQ(propertyListFromBytes(utf16(kText, false)), expected);
  EXPECT_EQ(propertyListFromBytes(utf16(kText, true)), expected);
  EXPECT_EQ(propertyListFromBytes("\xEF\xBB\xBF" + std::string(kText)), expected);
  EXPECT_EQ(propertyListFromBytes(kText), expected);
}

TEST(StringsFile, MayBeAPropertyListOfAnyKind) {
  const PropertyListDictionary table = {{"TipsEnable", "1"}};
  EXPECT_EQ(propertyListFromBytes(clientcomm::xmlPropertyList(table)), PropertyListValue(table));
  EXPECT_EQ(propertyListFromBytes("{ TipsEnable = 1; }"), PropertyListValue(table));
  const std::string binary(
      "bplist00\xD1\x01\x02\x5ATipsEnable\x51\x31\x08\x0B\x16\0\0\0\0\0\0\x01\x01"
      "\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x18",
      24 + 3 + 32);
  EXPECT_EQ(propertyListFromBytes(binary), PropertyListValue(table));
}

TEST(StringsFile, OfNothingButBlanksAndCommentsIsAnEmptyTable) {
  for (const char* text :
       {" \n\t", "/* only a comment */", "// one more\n", "\xEF\xBB\xBF", "\xFF\xFE", "/* open"}) {
    EXPECT_EQ(propertyListFromBytes(text), dictionary({})) << text;
  }
}

TEST(StringsFile, IsRefusedWhenMalformed) {
  for (const char* text : {"",
                           "\"a",
                           "}",
                           "\"a\" = \"b",
                           "\"a\" = ;",
                           "\"a\" = \"b\" \"c\" = \"d\";",
                           "\"a\" \"b\";",
                           "= b;",
                           "\"a\" = \"b\\",
                           "{ a = b;",
                           "( a, b",
                           "<0g>",
                           "<012>",
                           "<01",
                           "\"a\" = (b;);",
                           "\"a\" = {b = c;;};",
                           "a = b; c",
                           "\"\xFF\" = \"b\";",
                           "\x01",
                           "key = v\xC3\xA9;"}) {
    EXPECT_EQ(propertyListFromBytes(text), std::nullopt) << text;
  }
}

TEST(StringsFile, IsRefusedWhenItsUtf16IsIllFormed) {
  EXPECT_FALSE(propertyListFromBytes(utf16("a = b;", false) + "x")) << "half a unit";
  EXPECT_FALSE(propertyListFromBytes(utf16("a = b;", false) + "\x3D\xD8")) << "half a character";
  EXPECT_FALSE(propertyListFromBytes(utf16("a = b;", false) + "\x00\xDE" + "a"))
      << "its second half";
  EXPECT_FALSE(propertyListFromBytes(utf16(std::string_view("a = b;\0c = d;", 13), true)))
      << "what follows a NUL must not be lost in a rewrite";
}

TEST(StringsFile, ReadsNestedValues) {
  EXPECT_EQ(valueOf("(a, \"b c\", (), {d = e;},)"),
            PropertyListValue(Array{"a", "b c", Array{}, PropertyListDictionary{{"d", "e"}}}));
  EXPECT_EQ(valueOf("<00 ff 7F>"),
            PropertyListValue(Data{std::byte{0}, std::byte{0xFF}, std::byte{0x7F}}));
}

TEST(StringsFile, IsRefusedWhenNestedTooDeep) {
  for (const char* opening : {"(", "{a=", "({a="}) {
    std::string text;
    for (int i = 0; i < 300'000; ++i) text += opening;
    EXPECT_FALSE(propertyListFromBytes(text));
  }
  EXPECT_TRUE(propertyListFromBytes(std::string(100, '(') + std::string(100, ')')));
}

TEST(StringsFile, IsWrittenAsItIsRead) {
  const PropertyListDictionary table = {
      {"TipsEnable", "1"},
      {"quote \" and \\ backslash", "line\nbreak\rtab\t"},
      {"", ""},
      {"\xE4\xB8\xAD\xE6\x96\x87", "\xF0\x9F\x98\x80"},
      {"nul", std::string("a\0b", 3)},
      {"list", Array{"a", Array{}, Data{std::byte{0x1F}}}},
      {"table", PropertyListDictionary{{"x", "y"}, {"z", PropertyListDictionary{}}}}};
  const std::string text = descriptionInStringsFileFormat(table);
  EXPECT_EQ(propertyListFromBytes(text), PropertyListValue(table)) << text;
}

TEST(StringsFile, KeepsWhateverItsStringsHoldInUtf16) {
  PropertyListDictionary table = {{"\xFF\xC3", "/home/\xFF/\xED\xA0\x80\xEF\xBF\xBF"},
                                  {"\xF0\x9F\x98\x80\xF0", std::string("\0\x01\x1F"
                                                                       "7\xEF\xBF\xBD",
                                                                       7)}};
  for (int c = 0; c < 256; ++c) {
    table.emplace("key " + std::string(1, static_cast<char>(c)),
                  std::string(2, static_cast<char>(c)));
  }
  const std::string path = support::sandbox() + "/Bytes.strings";
  ASSERT_TRUE(writeTextToFileAsUTF16(descriptionInStringsFileFormat(table), path).isOk());
  EXPECT_EQ(dictionaryWithContentsOfFile(path), table);
  EXPECT_EQ(valueOf("\"\\UDCFF\\UDC80\""), PropertyListValue("\xFF\x80"));
}

TEST(StringsFile, IsNotWrittenTooLargeToBeReadAgain) {
  const std::string path = support::sandbox() + "/Large.strings";
  ASSERT_TRUE(writeTextToFileAsUTF16("\"a\" = \"b\";", path).isOk());
  EXPECT_FALSE(writeTextToFileAsUTF16(std::string(std::size_t{9} << 20U, ' '), path).isOk());
  EXPECT_EQ(dictionaryWithContentsOfFile(path), (PropertyListDictionary{{"a", "b"}}));
}

TEST(StringsFile, IsWrittenAsOneLineForEachEntry) {
  EXPECT_EQ(descriptionInStringsFileFormat({{"b", "2"}, {"a", "1"}}),
            "\"a\" = \"1\";\n\"b\" = \"2\";\n");
  EXPECT_EQ(descriptionInStringsFileFormat({}), "");
}

TEST(StringsFile, WritesOtherValuesAsTextsThatReadAlike) {
  EXPECT_EQ(descriptionInStringsFileFormat({{"a", true}, {"b", false}, {"c", -5}, {"d", 0.1}}),
            "\"a\" = \"1\";\n\"b\" = \"0\";\n\"c\" = \"-5\";\n\"d\" = \"0.1\";\n");
}

TEST(StringsFile, IsWrittenInUtf16WithByteOrderMark) {
  const std::string path = support::sandbox() + "/InfoPlist.strings";
  ASSERT_TRUE(writeTextToFileAsUTF16("\"a\" = \"\xE4\xB8\xAD\xF0\x9F\x98\x80\";", path).isOk());
  const std::string expected("\xFF\xFE\"\0a\0\"\0 \0=\0 \0\"\0\x2D\x4E\x3D\xD8\x00\xDE\"\0;\0", 26);
  EXPECT_EQ(support::readFile(path), expected);
  EXPECT_EQ(dictionaryWithContentsOfFile(path),
            (PropertyListDictionary{{"a", "\xE4\xB8\xAD\xF0\x9F\x98\x80"}}));
}

TEST(StringsFile, IsNotWrittenWhereThereIsNoFolder) {
  const std::string file = support::sandbox() + "/file";
  support::writeFile(file, "x");
  EXPECT_FALSE(writeTextToFileAsUTF16("text", file + "/InfoPlist.strings").isOk());
  EXPECT_EQ(support::readFile(file), "x");
}

}  // namespace
