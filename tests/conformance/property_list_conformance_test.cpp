// property_list.h and strings_file.h, as far as they work on files. What they make of the bytes is
// portable.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/strings_file.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::dictionaryWithContentsOfFile;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using clientcomm::writeDictionaryToFile;
using clientcomm::writeTextToFileAsUTF16;

constexpr char kOldContent[] = "key = old;";
constexpr int kTooDeep = 200;

PropertyListValue nested(int depth) {
  PropertyListValue value("innermost");
  for (int i = 0; i < depth; ++i) value = PropertyListValue::Array{value};
  return value;
}

class PropertyListConformance : public testing::Test {
 protected:
  const std::string path_ = support::sandbox() + "/Settings.plist";
};

using StringsFileConformance = PropertyListConformance;

TEST_F(PropertyListConformance, IsReadInEachForm) {
  using namespace std::literals;
  const PropertyListDictionary expected = {{"key", "value"}};
  for (const std::string_view bytes :
       {"<plist><dict><key>key</key><string>value</string></dict></plist>"sv, "{ key = value; }"sv,
        "\"key\" = \"value\";\n"sv, "\xFF\xFEk\0e\0y\0=\0v\0a\0l\0u\0e\0;\0"sv,
        "bplist00\xD1\x01\x02\x53key\x55value\x08\x0B\x0F\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03"
        "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x15"sv}) {
    support::writeFile(path_, bytes);
    EXPECT_EQ(dictionaryWithContentsOfFile(path_), expected) << bytes;
  }
}

TEST_F(PropertyListConformance, IsNoDictionaryWhereTheFileIsMalformedOrMissing) {
  for (const char* bytes : {"", "<plist><dict>", "<plist><array/></plist>", "key = ", "bplist00"}) {
    support::writeFile(path_, bytes);
    EXPECT_EQ(dictionaryWithContentsOfFile(path_), std::nullopt) << bytes;
    EXPECT_EQ(support::readFile(path_), bytes) << "reading changes nothing";
  }
  EXPECT_EQ(dictionaryWithContentsOfFile(support::sandbox() + "/missing"), std::nullopt);
  EXPECT_EQ(dictionaryWithContentsOfFile(support::sandbox()), std::nullopt) << "a folder";
  EXPECT_EQ(dictionaryWithContentsOfFile(""), std::nullopt);
}

TEST_F(PropertyListConformance, IsReadBackAsItWasWritten) {
  const PropertyListDictionary dictionary = {
      {"array", PropertyListValue::Array{true, -1, 1.5}},
      {"bytes", "\xFF\x01"},
      {"data", PropertyListValue::Data{std::byte{0}, std::byte{0xFF}}},
      {"large", UINT64_MAX},
      {"nested", PropertyListDictionary{{"", ""}}},
      {"when", clientcomm::PropertyListDate{86400}}};
  ASSERT_TRUE(writeDictionaryToFile(dictionary, path_));
  EXPECT_EQ(dictionaryWithContentsOfFile(path_), dictionary);
}

TEST_F(PropertyListConformance, TakesThePlaceOfTheWholeOldContent) {
  ASSERT_TRUE(writeDictionaryToFile({{"key", std::string(1000, 'x')}}, path_));
  ASSERT_TRUE(writeDictionaryToFile({}, path_));
  EXPECT_EQ(support::readFile(path_), clientcomm::xmlPropertyList({}));
}

TEST_F(PropertyListConformance, LeavesTheOldContentWhereTheNewCouldNotBeReadAgain) {
  support::writeFile(path_, kOldContent);
  EXPECT_FALSE(writeDictionaryToFile({{"key", nested(kTooDeep)}}, path_));
  EXPECT_EQ(support::readFile(path_), kOldContent);
}

TEST_F(PropertyListConformance, IsNotWrittenWhereThereIsNoFolderOrNoFile) {
  EXPECT_FALSE(writeDictionaryToFile({}, support::sandbox() + "/missing/Settings.plist"));
  EXPECT_FALSE(support::isFolder(support::sandbox() + "/missing"));
  EXPECT_FALSE(writeDictionaryToFile({}, support::sandbox())) << "a folder";
}

TEST_F(StringsFileConformance, IsReadBackAsItWasWritten) {
  const PropertyListDictionary dictionary = {{"\"key\"", "\xC3\xA9 \xF0\x9F\x98\x80"}, {"", "\n"}};
  ASSERT_TRUE(
      writeTextToFileAsUTF16(clientcomm::descriptionInStringsFileFormat(dictionary), path_).isOk());
  EXPECT_TRUE(support::readFile(path_).starts_with("\xFF\xFE"));
  EXPECT_EQ(dictionaryWithContentsOfFile(path_), dictionary);
}

TEST_F(StringsFileConformance, IsNotWrittenWhereThereIsNoFolderOrNoFile) {
  EXPECT_FALSE(writeTextToFileAsUTF16("", support::sandbox() + "/missing/Some.strings").isOk());
  EXPECT_FALSE(support::isFolder(support::sandbox() + "/missing"));
  EXPECT_FALSE(writeTextToFileAsUTF16("", support::sandbox()).isOk()) << "a folder";
}

}  // namespace
