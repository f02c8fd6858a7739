#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "platform/bundle.h"
#include "platform/property_list.h"
#include "tests/support/permissions.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using platform::PropertyListDictionary;
using platform::PropertyListValue;

std::string contentsPath() { return support::hostBundlePath() + "/Contents"; }
std::string infoPath() { return contentsPath() + "/Info.plist"; }
std::string tablePath(const std::string& language, const std::string& name) {
  return contentsPath() + "/Resources/" + language + ".lproj/" + name + ".strings";
}
std::string englishTable() { return tablePath("en", "InfoPlist"); }

PropertyListDictionary read(const std::string& path) {
  return platform::dictionaryWithContentsOfFile(path).value_or(PropertyListDictionary());
}

/// The value of `key` in the file at `path`; nothing when absent.
std::optional<PropertyListValue> valueIn(const std::string& path, const std::string& key) {
  const PropertyListDictionary dictionary = read(path);
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? std::nullopt : std::optional(found->second);
}
std::optional<PropertyListValue> inInfo(const std::string& key) { return valueIn(infoPath(), key); }

/// Everything by which a rewritten file would differ from an untouched one.
struct FileState {
  ino_t inode = 0;
  std::int64_t modified = 0;
  std::string bytes;
  bool operator==(const FileState&) const = default;
};

FileState stateOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return {status.st_ino, status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec,
          support::readFile(path)};
}

std::ostream& operator<<(std::ostream& stream, const FileState& state) {
  return stream << state.inode << " modified " << state.modified << ": " << state.bytes;
}

class SettingsFilesTest : public testing::Test {
 protected:
  SettingsFilesTest() { support::RecordingTransport::install(); }

  static TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

  /// Writes the host's Info.plist with `keys` beside what it has anyway.
  static void writeInfoWith(const PropertyListDictionary& keys) {
    PropertyListDictionary info = support::defaultHostInfo();
    for (const auto& [key, value] : keys) info.insert_or_assign(key, value);
    support::writeHostInfo(info);
  }
};

// --- The property list ---

TEST_F(SettingsFilesTest, AStartWritesTheDefaultsOfSwitchesThatAreAbsent) {
  controller().startHelper();
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(true)) << "on unless switched off";
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(false)) << "off unless switched on";
}

TEST_F(SettingsFilesTest, AStartReadsTheSwitchesOfTheFirstLanguageThatHasAnInfoPlistTable) {
  setenv("LANGUAGE", "de:fr:en", 1);
  writeInfoWith({{"TipsEnable", true}, {"EnableAD", false}});
  support::writeFile(tablePath("de", "Localizable"), "\"other\" = \"text\";\n");
  support::writeFile(tablePath("fr", "InfoPlist"), "\"TipsEnable\" = \"0\";\n");
  support::writeFile(englishTable(), "\"TipsEnable\" = \"1\";\n\"EnableAD\" = \"1\";\n");
  controller().startHelper();
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(false));
}

TEST_F(SettingsFilesTest, AStartLeavesSwitchesThatAreThereAsTheyAre) {
  writeInfoWith({{"TipsEnable", false}, {"EnableAD", true}});
  const FileState before = stateOf(infoPath());
  controller().startHelper();
  EXPECT_EQ(stateOf(infoPath()), before);
}

TEST_F(SettingsFilesTest, AStartBringsThePropertyListIntoLineWithTheLocalisation) {
  writeInfoWith({{"TipsEnable", true}, {"EnableAD", false}});
  support::writeFile(englishTable(), "\"TipsEnable\" = \"0\";\n\"EnableAD\" = \"1\";\n");
  const FileState table = stateOf(englishTable());
  controller().startHelper();
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(true));
  EXPECT_EQ(stateOf(englishTable()), table) << "the table itself is not written";
}

TEST_F(SettingsFilesTest, ASwitchThatChangesIsWrittenAsABoolean) {
  writeInfoWith({{"TipsEnable", "YES"}, {"EnableAD", 0}});
  controller().setTipsEnable(false);
  controller().setEnableAD(true);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(true));
}

TEST_F(SettingsFilesTest, ASwitchThatIsAbsentIsAdded) {
  controller().setEnableAD(false);
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(false));
  EXPECT_FALSE(inInfo("TipsEnable"));
}

TEST_F(SettingsFilesTest, AnEqualValueInThePropertyListLeavesTheFileUntouched) {
  const std::vector<std::pair<bool, PropertyListValue>> stored = {
      {true, true},  {true, 1},     {true, -7},     {true, 0.5},   {true, "1"},
      {true, "YES"}, {true, " t"},  {false, false}, {false, 0},    {false, 0.0},
      {false, "0"},  {false, "NO"}, {false, ""},    {false, "off"}};
  for (const auto& [flag, value] : stored) {
    writeInfoWith({{"TipsEnable", value}, {"EnableAD", value}});
    const FileState before = stateOf(infoPath());
    controller().saveTipsEnableToPlistFile(flag);
    controller().saveEnableADToPlistFile(flag);
    EXPECT_EQ(stateOf(infoPath()), before);
  }
}

TEST_F(SettingsFilesTest, AValueThatIsNoTruthValueReadsAsFalse) {
  writeInfoWith({{"TipsEnable", PropertyListValue::Array{true}}});
  const FileState before = stateOf(infoPath());
  controller().saveTipsEnableToPlistFile(false);
  EXPECT_EQ(stateOf(infoPath()), before);
  controller().saveTipsEnableToPlistFile(true);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(true));
}

TEST_F(SettingsFilesTest, ThePropertyListThatIsWrittenIsTheFirstOfTheListing) {
  for (const char* name : {"a", "zz", "Version"}) {
    support::writeFile(contentsPath() + "/" + name + ".plist", platform::xmlPropertyList({}));
  }
  support::writeFile(contentsPath() + "/Other.PLIST", platform::xmlPropertyList({}));
  support::writeFile(contentsPath() + "/0/nested.plist", platform::xmlPropertyList({}));
  std::string first;
  for (const fs::directory_entry& entry : fs::directory_iterator(contentsPath())) {
    if (entry.path().extension() == ".plist" && first.empty()) first = entry.path();
  }
  EXPECT_EQ(TQHPHelperCommunicate::searchPlistFilePath(support::hostBundlePath()), first);
  controller().saveTipsEnableToPlistFile(true);
  int written = 0;
  for (const char* name : {"a", "zz", "Version", "Info"}) {
    const std::string path = contentsPath() + "/" + name + ".plist";
    const bool isWritten = valueIn(path, "TipsEnable").has_value();
    EXPECT_EQ(isWritten, path == first) << path;
    written += isWritten ? 1 : 0;
  }
  EXPECT_EQ(written, 1);
}

TEST_F(SettingsFilesTest, ABundleWithoutAPropertyListHasNoneToWrite) {
  controller();
  fs::remove(infoPath());
  support::writeFile(contentsPath() + "/Info.PLIST", platform::xmlPropertyList({}));
  EXPECT_EQ(TQHPHelperCommunicate::searchPlistFilePath(support::hostBundlePath()), std::nullopt);
  controller().setTipsEnable(false);
  EXPECT_FALSE(fs::exists(infoPath())) << "it is never made";
  EXPECT_EQ(TQHPHelperCommunicate::searchPlistFilePath("/no/such/bundle"), std::nullopt);
  EXPECT_EQ(TQHPHelperCommunicate::searchPlistFilePath(std::nullopt), std::nullopt);
}

TEST_F(SettingsFilesTest, ACorruptPropertyListIsLeftAsItIs) {
  controller();
  for (const char* bytes : {"<plist><dict><key>TipsEnable</key>", "bplist00 cut short"}) {
    support::writeFile(infoPath(), bytes);
    const FileState before = stateOf(infoPath());
    controller().setTipsEnable(false);
    controller().startHelper();
    EXPECT_EQ(stateOf(infoPath()), before);
  }
}

TEST_F(SettingsFilesTest, ThroughALinkThePropertyListsTargetIsReplaced) {
  const std::string target = support::sandbox() + "/elsewhere/Real.plist";
  fs::create_directories(fs::path(target).parent_path());
  fs::rename(infoPath(), target);
  fs::create_symlink(target, infoPath());
  controller().setTipsEnable(false);
  EXPECT_EQ(fs::read_symlink(infoPath()), target);
  EXPECT_EQ(valueIn(target, "TipsEnable"), PropertyListValue(false));
}

TEST_F(SettingsFilesTest, AFailedWriteIsIgnoredAndLeavesTheFilesWhole) {
  support::writeFile(englishTable(), "\"TipsEnable\" = \"1\";\n");
  controller().setTipsEnable(true);
  const FileState info = stateOf(infoPath());
  const FileState table = stateOf(englishTable());
  const support::SealedFolder contents(contentsPath());
  const support::SealedFolder tables(contentsPath() + "/Resources/en.lproj");
  const support::BoundByPermissions bound;
  controller().setTipsEnable(false);
  EXPECT_EQ(stateOf(infoPath()), info);
  EXPECT_EQ(stateOf(englishTable()), table);
}

// --- What a rewrite of the property list keeps, by another reader than the writer ---

using PlistNode = std::unique_ptr<void, void (*)(plist_t)>;

PlistNode parse(const std::string& bytes) {
  plist_t node = nullptr;
  plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  return {node, &plist_free};
}

std::string describe(plist_t node);

std::string describeDictionary(plist_t node) {
  std::vector<std::string> entries;
  plist_dict_iter rawIterator = nullptr;
  plist_dict_new_iter(node, &rawIterator);
  const std::unique_ptr<void, void (*)(void*)> iterator(rawIterator, &std::free);
  for (;;) {
    char* rawKey = nullptr;
    plist_t value = nullptr;
    plist_dict_next_item(node, iterator.get(), &rawKey, &value);
    if (value == nullptr) break;
    const std::unique_ptr<char, void (*)(void*)> key(rawKey, &std::free);
    entries.push_back(std::string(key.get()) + "=" + describe(value));
  }
  std::sort(entries.begin(), entries.end());
  std::string text = "{";
  for (const std::string& entry : entries) text += entry + ";\n";
  return text + "}";
}

std::string describeArray(plist_t node) {
  std::string text = "[";
  for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
    text += describe(plist_array_get_item(node, i)) + ",";
  }
  return text + "]";
}

std::string describeScalar(plist_t node) {
  std::uint64_t length = 0;
  std::uint64_t number = 0;
  std::uint8_t flag = 0;
  double real = 0;
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  switch (plist_get_node_type(node)) {
    case PLIST_STRING:
      return "string " + std::string(plist_get_string_ptr(node, &length));
    case PLIST_DATA: {
      const char* const bytes = plist_get_data_ptr(node, &length);
      return "data " + std::string(bytes, length);
    }
    case PLIST_UINT:
      plist_get_uint_val(node, &number);
      return "integer " + std::to_string(number);
    case PLIST_BOOLEAN:
      plist_get_bool_val(node, &flag);
      return flag != 0 ? "true" : "false";
    case PLIST_REAL:
      plist_get_real_val(node, &real);
      return "real " + std::to_string(std::bit_cast<std::uint64_t>(real));
    case PLIST_DATE:
      plist_get_date_val(node, &seconds, &microseconds);
      return "date " + std::to_string(seconds) + "." + std::to_string(microseconds);
    default:
      return "other";
  }
}

/// The value as text that is equal for equal values alone, whatever the order of keys.
std::string describe(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_DICT:
      return describeDictionary(node);
    case PLIST_ARRAY:
      return describeArray(node);
    default:
      return describeScalar(node);
  }
}

constexpr char kEveryTypeOfValue[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
  <key>CFBundleIdentifier</key><string>com.example.testhost</string>
  <key>Text</key><string>  &lt;a&gt; &amp; "b" 'c'
second line	tab  </string>
  <key>Empty text</key><string></string>
  <key>真偽 é 😀</key><string>値 ü 😀</string>
  <key>Yes</key><true/>
  <key>No</key><false/>
  <key>Zero</key><integer>0</integer>
  <key>Negative</key><integer>-5</integer>
  <key>Smallest</key><integer>-9223372036854775808</integer>
  <key>Largest</key><integer>9223372036854775807</integer>
  <key>Beyond</key><integer>18446744073709551615</integer>
  <key>Real</key><real>0.1</real>
  <key>Small real</key><real>-2.2250738585072014e-308</real>
  <key>Whole real</key><real>3</real>
  <key>Date</key><date>2013-02-28T23:59:59Z</date>
  <key>Old date</key><date>1969-07-20T20:17:40Z</date>
  <key>Data</key><data>AAECAwT/</data>
  <key>Empty data</key><data></data>
  <key>Empty list</key><array/>
  <key>Empty dictionary</key><dict/>
  <key>Nested</key>
  <array>
    <dict><key>a</key><array><integer>1</integer><string>1</string><true/><array/></array></dict>
    <array><array><date>2001-01-01T00:00:00Z</date></array></array>
  </array>
</dict>
</plist>
)";

/// The Info.plist as libplist describes it, without the switch itself.
std::string describeInfoWithoutSwitch() {
  const PlistNode node = parse(support::readFile(infoPath()));
  plist_dict_remove_item(node.get(), "TipsEnable");
  return describe(node.get());
}

TEST_F(SettingsFilesTest, ARewriteKeepsEveryOtherValueOfEveryType) {
  support::writeFile(infoPath(), kEveryTypeOfValue);
  const std::string before = describeInfoWithoutSwitch();
  controller().saveTipsEnableToPlistFile(false);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(describeInfoWithoutSwitch(), before);
}

TEST_F(SettingsFilesTest, ARewriteKeepsTheSignOfLargeIntegers) {
  support::writeFile(infoPath(), kEveryTypeOfValue);
  controller().saveTipsEnableToPlistFile(false);
  const std::string xml = support::readFile(infoPath());
  for (const char* number :
       {"-5", "-9223372036854775808", "9223372036854775807", "18446744073709551615"}) {
    EXPECT_NE(xml.find("<integer>" + std::string(number) + "</integer>"), std::string::npos)
        << number;
  }
}

TEST_F(SettingsFilesTest, ABinaryPropertyListKeepsEveryOtherValueToo) {
  const PlistNode node = parse(kEveryTypeOfValue);
  char* rawBytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node.get(), &rawBytes, &length);
  const std::unique_ptr<char, void (*)(char*)> bytes(rawBytes, &plist_to_bin_free);
  support::writeFile(infoPath(), {bytes.get(), length});
  controller().saveTipsEnableToPlistFile(false);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(describeInfoWithoutSwitch(), describe(node.get()));
}

TEST_F(SettingsFilesTest, RepeatedRewritesChangeNothingElse) {
  support::writeFile(infoPath(), kEveryTypeOfValue);
  controller().saveTipsEnableToPlistFile(true);
  const std::string before = support::readFile(infoPath());
  for (int i = 0; i < 5; ++i) {
    controller().saveTipsEnableToPlistFile(false);
    controller().saveTipsEnableToPlistFile(true);
  }
  EXPECT_EQ(support::readFile(infoPath()), before);
}

// --- The string table ---

/// The text of a UTF-16 file with byte-order mark, ASCII characters alone.
std::string asciiOfUtf16File(const std::string& path) {
  const std::string bytes = support::readFile(path);
  const bool isLittleEndian = bytes.starts_with("\xFF\xFE");
  EXPECT_TRUE(isLittleEndian || bytes.starts_with("\xFE\xFF")) << "no byte-order mark";
  EXPECT_EQ(bytes.size() % 2, 0U);
  std::string text;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
    const auto low = static_cast<unsigned char>(bytes[isLittleEndian ? i : i + 1]);
    const auto high = static_cast<unsigned char>(bytes[isLittleEndian ? i + 1 : i]);
    text += high == 0 && low < 0x80 ? static_cast<char>(low) : '?';
  }
  return text;
}

TEST_F(SettingsFilesTest, ASwitchIsWrittenIntoTheTableAsOneOrZero) {
  support::writeFile(englishTable(), "\"TipsEnable\" = \"1\";\n");
  controller().setTipsEnable(false);
  EXPECT_EQ(valueIn(englishTable(), "TipsEnable"), PropertyListValue("0"));
  controller().setTipsEnable(true);
  EXPECT_EQ(valueIn(englishTable(), "TipsEnable"), PropertyListValue("1"));
  controller().setEnableAD(true);
  EXPECT_EQ(valueIn(englishTable(), "EnableAD"), PropertyListValue("1"));
  controller().setEnableAD(false);
  EXPECT_EQ(valueIn(englishTable(), "EnableAD"), PropertyListValue("0"));
}

TEST_F(SettingsFilesTest, TheTableIsWrittenInUtf16WithAByteOrderMark) {
  support::writeFile(englishTable(), "/* old */ \"TipsEnable\" = \"1\";\n");
  controller().setTipsEnable(false);
  const std::string text = asciiOfUtf16File(englishTable());
  EXPECT_NE(text.find("\"TipsEnable\" = \"0\";"), std::string::npos) << text;
}

TEST_F(SettingsFilesTest, ARewriteOfTheTableKeepsItsOtherEntries) {
  support::writeFile(englishTable(),
                     "\"TipsEnable\" = \"1\";\n"
                     "plain = value;\n"
                     "\"with \\\"quotes\\\" and \\\\\" = \"line 1\\nline 2\\ttab\";\n"
                     "\"\xE7\x9C\x9F\" = \"\xF0\x9F\x98\x80 \xC3\xA9\";\n"
                     "\"empty\" = \"\";\n");
  PropertyListDictionary expected = read(englishTable());
  ASSERT_EQ(expected.size(), 5U);
  controller().setTipsEnable(false);
  expected.insert_or_assign("TipsEnable", "0");
  EXPECT_EQ(read(englishTable()), expected);
}

TEST_F(SettingsFilesTest, ATableInUtf16IsReadAndWritten) {
  std::u16string text = u"\uFEFF\"TipsEnable\" = \"YES\";\n\"other\" = \"\u00E9\";\n";
  support::writeFile(englishTable(),
                     {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)});
  const FileState before = stateOf(englishTable());
  controller().saveTipsEnableTostringsFile(true);
  EXPECT_EQ(stateOf(englishTable()), before);
  controller().saveTipsEnableTostringsFile(false);
  EXPECT_EQ(read(englishTable()),
            (PropertyListDictionary{{"TipsEnable", "0"}, {"other", "\xC3\xA9"}}));
}

TEST_F(SettingsFilesTest, ATableThatIsAPropertyListIsReadToo) {
  support::writeFile(englishTable(),
                     platform::xmlPropertyList({{"TipsEnable", true}, {"other", "text"}}));
  const FileState before = stateOf(englishTable());
  controller().saveTipsEnableTostringsFile(true);
  EXPECT_EQ(stateOf(englishTable()), before) << "the boolean is equal";
  controller().saveTipsEnableTostringsFile(false);
  EXPECT_EQ(read(englishTable()), (PropertyListDictionary{{"TipsEnable", "0"}, {"other", "text"}}));
}

TEST_F(SettingsFilesTest, AnEqualValueInTheTableLeavesTheFileUntouched) {
  for (const char* yes : {"1", "YES", "true", " 7"}) {
    support::writeFile(englishTable(), "\"TipsEnable\" = \"" + std::string(yes) + "\";\n");
    const FileState before = stateOf(englishTable());
    controller().saveTipsEnableTostringsFile(true);
    EXPECT_EQ(stateOf(englishTable()), before);
  }
  for (const char* no : {"0", "NO", "", "off"}) {
    support::writeFile(englishTable(), "\"TipsEnable\" = \"" + std::string(no) + "\";\n");
    const FileState before = stateOf(englishTable());
    controller().saveTipsEnableTostringsFile(false);
    EXPECT_EQ(stateOf(englishTable()), before);
  }
}

TEST_F(SettingsFilesTest, ASwitchThatTheTableLacksIsAdded) {
  support::writeFile(englishTable(), "\"other\" = \"text\";\n");
  controller().saveTipsEnableTostringsFile(true);
  EXPECT_EQ(read(englishTable()), (PropertyListDictionary{{"TipsEnable", "1"}, {"other", "text"}}));
}

TEST_F(SettingsFilesTest, ThroughALinkTheTablesTargetIsReplaced) {
  const std::string target = support::sandbox() + "/elsewhere/Real.strings";
  support::writeFile(target, "\"TipsEnable\" = \"1\";\n");
  fs::create_directories(fs::path(englishTable()).parent_path());
  fs::create_symlink(target, englishTable());
  controller().setTipsEnable(false);
  EXPECT_EQ(fs::read_symlink(englishTable()), target);
  EXPECT_EQ(valueIn(target, "TipsEnable"), PropertyListValue("0"));
}

TEST_F(SettingsFilesTest, ACorruptTableIsLeftAsItIs) {
  for (const char* bytes : {"\"TipsEnable\" = \"1", "{ not a table", "\xFF\xFEx", "<plist>"}) {
    support::writeFile(englishTable(), bytes);
    const FileState before = stateOf(englishTable());
    controller().setTipsEnable(false);
    controller().setEnableAD(true);
    EXPECT_EQ(stateOf(englishTable()), before);
  }
}

// --- Which table it is ---

class StringTableSearchTest : public SettingsFilesTest {
 protected:
  static OptionalString table() {
    return TQHPHelperCommunicate::searchCurrentStringsFilePath(support::hostBundlePath());
  }
};

TEST_F(StringTableSearchTest, TheTableWithTheTipsIsChosenOverInfoPlist) {
  const std::string localizable = tablePath("en", "Localizable");
  support::writeFile(englishTable(), "\"other\" = \"text\";\n");
  support::writeFile(localizable, "\"TipsEnable\" = \"1\";\n");
  const FileState before = stateOf(englishTable());
  EXPECT_EQ(table(), localizable);
  controller().setTipsEnable(false);
  EXPECT_EQ(valueIn(localizable, "TipsEnable"), PropertyListValue("0"));
  EXPECT_EQ(stateOf(englishTable()), before);
}

TEST_F(StringTableSearchTest, BothSwitchesGoIntoTheTableWithTheTips) {
  const std::string localizable = tablePath("en", "Localizable");
  support::writeFile(englishTable(), "\"EnableAD\" = \"0\";\n");
  support::writeFile(localizable, "\"TipsEnable\" = \"1\";\n");
  const FileState before = stateOf(englishTable());
  controller().setEnableAD(true);
  EXPECT_EQ(valueIn(localizable, "EnableAD"), PropertyListValue("1"));
  EXPECT_EQ(stateOf(englishTable()), before);
}

TEST_F(StringTableSearchTest, TheTableWithTheTipsIsFoundWhereverItStandsInTheListing) {
  const std::vector<std::string> names = {"A", "B", "C", "D", "InfoPlist", "Z"};
  for (const std::string& chosen : names) {
    for (const std::string& name : names) {
      support::writeFile(tablePath("en", name),
                         name == chosen ? "\"TipsEnable\" = \"1\";\n" : "\"other\" = \"text\";\n");
    }
    EXPECT_EQ(table(), tablePath("en", chosen));
  }
}

TEST_F(StringTableSearchTest, FilesThatAreNoTablesArePassedOver) {
  support::writeFile(contentsPath() + "/Resources/en.lproj/Tips.txt", "\"TipsEnable\" = \"1\";\n");
  support::writeFile(tablePath("en", "Broken"), "\"TipsEnable\" = ");
  fs::create_directories(tablePath("en", "Folder"));
  EXPECT_EQ(table(), englishTable());
}

TEST_F(StringTableSearchTest, WithoutTheTipsInAnyTableItIsInfoPlistWhichIsNotMade) {
  support::writeFile(tablePath("en", "Localizable"), "\"other\" = \"text\";\n");
  const FileState before = stateOf(tablePath("en", "Localizable"));
  EXPECT_EQ(table(), englishTable());
  controller().setTipsEnable(false);
  controller().setEnableAD(true);
  EXPECT_FALSE(fs::exists(englishTable()));
  EXPECT_EQ(stateOf(tablePath("en", "Localizable")), before);
}

TEST_F(StringTableSearchTest, AnEmptyLocalisationHasInfoPlistForItsTable) {
  fs::create_directories(contentsPath() + "/Resources/en.lproj");
  EXPECT_EQ(table(), englishTable());
  controller().setTipsEnable(false);
  EXPECT_FALSE(fs::exists(englishTable()));
}

TEST_F(StringTableSearchTest, APreferredLocalisationWithoutAFolderHasNoTable) {
  writeInfoWith({{"CFBundleDevelopmentRegion", "fr"}});
  support::writeFile(tablePath("de", "InfoPlist"), "\"TipsEnable\" = \"1\";\n");
  const FileState before = stateOf(tablePath("de", "InfoPlist"));
  EXPECT_EQ(table(), std::nullopt);
  controller().setTipsEnable(false);
  EXPECT_EQ(stateOf(tablePath("de", "InfoPlist")), before);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false)) << "the property list is written";
}

TEST_F(StringTableSearchTest, WithoutAnyLocalisationThereIsNoTable) {
  EXPECT_EQ(table(), std::nullopt);
  EXPECT_EQ(TQHPHelperCommunicate::searchCurrentStringsFilePath("/no/such/bundle"), std::nullopt);
  EXPECT_EQ(TQHPHelperCommunicate::searchCurrentStringsFilePath(std::nullopt), std::nullopt);
}

TEST_F(StringTableSearchTest, TheUsersFirstLanguageDecides) {
  setenv("LANGUAGE", "de:en", 1);
  setenv("LANG", "de_DE.UTF-8", 1);
  for (const char* language : {"en", "de", "fr"}) {
    support::writeFile(tablePath(language, "InfoPlist"), "\"TipsEnable\" = \"1\";\n");
  }
  EXPECT_EQ(table(), tablePath("de", "InfoPlist"));
  controller().setTipsEnable(false);
  EXPECT_EQ(valueIn(tablePath("de", "InfoPlist"), "TipsEnable"), PropertyListValue("0"));
  EXPECT_EQ(valueIn(tablePath("en", "InfoPlist"), "TipsEnable"), PropertyListValue("1"));
  EXPECT_EQ(valueIn(tablePath("fr", "InfoPlist"), "TipsEnable"), PropertyListValue("1"));
}

TEST_F(StringTableSearchTest, AnOlderNameOfALanguagesFolderIsFound) {
  support::writeFile(tablePath("English", "InfoPlist"), "\"TipsEnable\" = \"1\";\n");
  setenv("LANG", "en_US.UTF-8", 1);
  EXPECT_EQ(table(), tablePath("English", "InfoPlist"));
}

TEST_F(StringTableSearchTest, TheTableIsSearchedInTheFirstLanguageAlone) {
  setenv("LANGUAGE", "de:en", 1);
  fs::create_directories(contentsPath() + "/Resources/de.lproj");
  support::writeFile(englishTable(), "\"TipsEnable\" = \"1\";\n");
  const FileState before = stateOf(englishTable());
  EXPECT_EQ(table(), tablePath("de", "InfoPlist"));
  controller().setTipsEnable(false);
  EXPECT_EQ(stateOf(englishTable()), before);
}

// --- A switch that was set, and the starts after it ---

class SwitchAfterRestartTest : public SettingsFilesTest {
 protected:
  SwitchAfterRestartTest() {
    writeInfoWith({{"TipsEnable", true}, {"EnableAD", false}});
    // The Info dictionary of the identity is read before any switch is set.
    EXPECT_EQ(platform::Bundle::mainBundle().infoValue("TipsEnable"), PropertyListValue(true));
  }
};

TEST_F(SwitchAfterRestartTest, StaysInThePropertyList) {
  controller().setTipsEnable(false);
  controller().setEnableAD(true);
  for (int i = 0; i < 2; ++i) controller().startHelper();
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(true));
}

TEST_F(SwitchAfterRestartTest, StaysInThePropertyListAndTheTable) {
  support::writeFile(englishTable(), "\"TipsEnable\" = \"1\";\n\"EnableAD\" = \"0\";\n");
  controller().setTipsEnable(false);
  controller().setEnableAD(true);
  for (int i = 0; i < 2; ++i) controller().startHelper();
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(true));
  EXPECT_EQ(valueIn(englishTable(), "TipsEnable"), PropertyListValue("0"));
  EXPECT_EQ(valueIn(englishTable(), "EnableAD"), PropertyListValue("1"));
}

TEST_F(SwitchAfterRestartTest, StaysWhereTheTipsAreInAnotherTable) {
  const std::string localizable = tablePath("en", "Localizable");
  support::writeFile(localizable, "\"TipsEnable\" = \"1\";\n");
  controller().setTipsEnable(false);
  controller().startHelper();
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(valueIn(localizable, "TipsEnable"), PropertyListValue("0"));
}

// --- The advertising switch by the helper-control proxy ---

class SaveEnableADTest : public SettingsFilesTest {
 protected:
  static bool save() { return TQHPHelperControl::share().saveEnableADToPlistFile(); }
};

TEST_F(SaveEnableADTest, WithoutASwitchThereIsNothingToSave) {
  const FileState before = stateOf(infoPath());
  EXPECT_TRUE(save());
  EXPECT_EQ(stateOf(infoPath()), before);
}

TEST_F(SaveEnableADTest, TheEffectiveValueIsWrittenAsABoolean) {
  writeInfoWith({{"EnableAD", "0"}});
  support::writeFile(englishTable(), "\"EnableAD\" = \"YES\";\n");
  EXPECT_TRUE(save());
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(true));
}

TEST_F(SaveEnableADTest, AnEqualValueIsWrittenAllTheSame) {
  writeInfoWith({{"EnableAD", "1"}});
  EXPECT_TRUE(save());
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(true));
}

TEST_F(SaveEnableADTest, WithoutAPropertyListThereIsNowhereToSave) {
  support::writeFile(englishTable(), "\"EnableAD\" = \"1\";\n");
  fs::remove(infoPath());
  EXPECT_TRUE(save());
  EXPECT_FALSE(fs::exists(infoPath()));
}

TEST_F(SaveEnableADTest, AFailedWriteIsReported) {
  writeInfoWith({{"EnableAD", "1"}});
  const support::SealedFolder contents(contentsPath());
  const support::BoundByPermissions bound;
  EXPECT_FALSE(save());
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue("1"));
}

TEST_F(SaveEnableADTest, ACorruptPropertyListIsReportedAndLeftAsItIs) {
  support::writeFile(englishTable(), "\"EnableAD\" = \"1\";\n");
  support::writeFile(infoPath(), "<plist><dict>");
  EXPECT_FALSE(save());
  EXPECT_EQ(support::readFile(infoPath()), "<plist><dict>");
}

TEST_F(SaveEnableADTest, ItCanBeCalledByName) {
  support::RecordingTransport& recorder = support::RecordingTransport::install();
  writeInfoWith({{"EnableAD", "1"}});
  TQHPHelperControl::share();
  const support::Answer answer = recorder.call("TQHPHelperControl", "saveEnableADToPlistFile");
  EXPECT_EQ(answer.text, std::nullopt) << "a flag is no text";
  EXPECT_EQ(inInfo("EnableAD"), PropertyListValue(true));
}

}  // namespace
