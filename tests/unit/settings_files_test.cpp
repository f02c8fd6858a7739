#include <gtest/gtest.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/property_list.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::OptionalString;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;

std::string contentsPath() { return support::hostBundlePath() + "/Contents"; }
std::string infoPath() { return contentsPath() + "/Info.plist"; }
std::string tablePath(const std::string& language, const std::string& name) {
  return contentsPath() + "/Resources/" + language + ".lproj/" + name + ".strings";
}
std::string englishTable() { return tablePath("en", "InfoPlist"); }

PropertyListDictionary read(const std::string& path) {
  return clientcomm::dictionaryWithContentsOfFile(path).value_or(PropertyListDictionary());
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
  std::uint64_t version = 0;
  std::string bytes;
  bool operator==(const FileState&) const = default;
};

FileState stateOf(const std::string& path) {
  const auto* const file = support::MemorySystem::current().files.file(path);
  EXPECT_NE(file, nullptr) << path;
  return file == nullptr ? FileState() : FileState{file->version, file->bytes};
}

std::ostream& operator<<(std::ostream& stream, const FileState& state) {
  return stream << "version " << state.version << ": " << state.bytes;
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
    support::writeFile(contentsPath() + "/" + name + ".plist", clientcomm::xmlPropertyList({}));
  }
  support::writeFile(contentsPath() + "/Other.PLIST", clientcomm::xmlPropertyList({}));
  support::writeFile(contentsPath() + "/0/nested.plist", clientcomm::xmlPropertyList({}));
  std::string first;
  for (const std::string& name : clientcomm::contentsOfDirectoryAtPath(contentsPath())) {
    if (name.ends_with(".plist") && first.empty()) first = contentsPath() + "/" + name;
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
  ASSERT_TRUE(clientcomm::removeItemAtPath(infoPath()).isOk());
  support::writeFile(contentsPath() + "/Info.PLIST", clientcomm::xmlPropertyList({}));
  EXPECT_EQ(TQHPHelperCommunicate::searchPlistFilePath(support::hostBundlePath()), std::nullopt);
  controller().setTipsEnable(false);
  EXPECT_FALSE(clientcomm::fileExistsAtPath(infoPath())) << "it is never made";
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

TEST_F(SettingsFilesTest, AReadOnlyFileIsLeftAsItIs) {
  support::writeFile(englishTable(), "\"TipsEnable\" = \"1\";\n");
  controller().setTipsEnable(true);
  for (const std::string& path : {infoPath(), englishTable()}) {
    support::MemorySystem::current().files.file(path)->isReadOnly = true;
  }
  const FileState info = stateOf(infoPath());
  const FileState table = stateOf(englishTable());
  controller().setTipsEnable(false);
  EXPECT_EQ(stateOf(infoPath()), info);
  EXPECT_EQ(stateOf(englishTable()), table);
}

// --- What a rewrite of the property list keeps ---

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

/// The same values as a binary property list, in hexadecimal; another program wrote it.
constexpr std::string_view kEveryTypeOfValueInBinary =
    "62706c6973743030df10150102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f2021222324"
    "25262728292a5f1012434642756e646c654964656e74696669657254546578745a456d707479207465787467771f50"
    "7d002000e90020d83dde0053596573524e6f545a65726f584e6567617469766558536d616c6c657374574c61726765"
    "7374564265796f6e64545265616c5a536d616c6c207265616c5a57686f6c65207265616c5444617465584f6c642064"
    "61746554446174615a456d70747920646174615a456d707479206c6973745f1010456d7074792064696374696f6e61"
    "7279564e65737465645f1014636f6d2e6578616d706c652e74657374686f73745f102120203c613e20262022622220"
    "2763270a7365636f6e64206c696e6509746162202050665024002000fc0020d83dde000908100013ffffffffffffff"
    "fb138000000000000000137fffffffffffffff140000000000000000ffffffffffffffff233fb999999999999a2380"
    "100000000000002340080000000000003341b6e026ff00000033c1cd94194e000000460001020304ff40a0d0a22b31"
    "d12c2d5161a42e2f1a3010015131a0a132a13333000000000000000000080035004a004f005a0069006d0070007500"
    "7e0087008f0096009b00a600b100b600bf00c400cf00da00ed00f4010b012f0130013d013e013f0141014a0153015c"
    "016d0176017f01880191019a01a101a201a301a401a701aa01ac01b101b301b501b601b801ba000000000000020100"
    "00000000000034000000000000000000000000000001c3";

std::string bytesOfHexadecimal(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    unsigned byte = 0;
    std::from_chars(digits.data() + i, digits.data() + i + 2, byte, 16);
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

PropertyListDictionary withoutTips(PropertyListDictionary dictionary) {
  dictionary.erase("TipsEnable");
  return dictionary;
}

TEST_F(SettingsFilesTest, ARewriteKeepsEveryOtherValueOfEveryType) {
  support::writeFile(infoPath(), kEveryTypeOfValue);
  const PropertyListDictionary before = read(infoPath());
  ASSERT_EQ(before.size(), 21U);
  controller().saveTipsEnableToPlistFile(false);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(withoutTips(read(infoPath())), before);
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
  support::writeFile(infoPath(), kEveryTypeOfValue);
  const PropertyListDictionary expected = read(infoPath());
  support::writeFile(infoPath(), bytesOfHexadecimal(kEveryTypeOfValueInBinary));
  EXPECT_EQ(read(infoPath()), expected);
  controller().saveTipsEnableToPlistFile(false);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(withoutTips(read(infoPath())), expected);
}

TEST_F(SettingsFilesTest, ARewriteOfAListInAnotherEncodingIsUtf8) {
  support::writeFile(infoPath(),
                     "<?xml version='1.0' encoding='ISO-8859-1'?><plist version='1.0'><dict>"
                     "<key>Gr\xF6\xDF"
                     "e</key><string>\xFC</string></dict></plist>");
  controller().saveTipsEnableToPlistFile(false);
  const std::string xml = support::readFile(infoPath());
  EXPECT_TRUE(xml.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")) << xml;
  EXPECT_NE(xml.find("<key>Gr\xC3\xB6\xC3\x9F"
                     "e</key>\n\t<string>\xC3\xBC</string>"),
            std::string::npos)
      << xml;
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
}

TEST_F(SettingsFilesTest, AListThatAStrictReaderRefusesIsLeftAlone) {
  const std::string start =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>";
  for (const std::string& body :
       {start + "<key>n</key><integer>12abc</integer></dict></plist>",
        start + "<key>n</key><integer>18446744073709551616</integer></dict></plist>",
        start + "<key>d</key><date>2001-02-30T00:00:00Z</date></dict></plist>",
        start + "<key>b</key><data>A!A=</data></dict></plist>",
        start + "<key>k</key></dict></plist>", start + "</dict></plist>rest",
        start + "<key>k</key><string>\xFC</string></dict></plist>", std::string()}) {
    support::writeFile(infoPath(), body);
    const FileState before = stateOf(infoPath());
    controller().saveTipsEnableToPlistFile(false);
    EXPECT_EQ(stateOf(infoPath()), before);
    support::writeFile(englishTable(), body);
    const FileState table = stateOf(englishTable());
    controller().saveTipsEnableTostringsFile(false);
    EXPECT_EQ(stateOf(englishTable()), table);
  }
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
                     clientcomm::xmlPropertyList({{"TipsEnable", true}, {"other", "text"}}));
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
  clientcomm::createDirectoryAtPath(tablePath("en", "Folder"));
  EXPECT_EQ(table(), englishTable());
}

TEST_F(StringTableSearchTest, WithoutTheTipsInAnyTableItIsInfoPlistWhichIsNotMade) {
  support::writeFile(tablePath("en", "Localizable"), "\"other\" = \"text\";\n");
  const FileState before = stateOf(tablePath("en", "Localizable"));
  EXPECT_EQ(table(), englishTable());
  controller().setTipsEnable(false);
  controller().setEnableAD(true);
  EXPECT_FALSE(clientcomm::fileExistsAtPath(englishTable()));
  EXPECT_EQ(stateOf(tablePath("en", "Localizable")), before);
}

TEST_F(StringTableSearchTest, AnEmptyLocalisationHasInfoPlistForItsTable) {
  clientcomm::createDirectoryAtPath(contentsPath() + "/Resources/en.lproj");
  EXPECT_EQ(table(), englishTable());
  controller().setTipsEnable(false);
  EXPECT_FALSE(clientcomm::fileExistsAtPath(englishTable()));
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
  clientcomm::createDirectoryAtPath(contentsPath() + "/Resources/de.lproj");
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
    EXPECT_EQ(clientcomm::Bundle::mainBundle().infoValue("TipsEnable"), PropertyListValue(true));
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
  ASSERT_TRUE(clientcomm::removeItemAtPath(infoPath()).isOk());
  EXPECT_TRUE(save());
  EXPECT_FALSE(clientcomm::fileExistsAtPath(infoPath()));
}

TEST_F(SaveEnableADTest, AFailedWriteIsReported) {
  writeInfoWith({{"EnableAD", "1"}});
  support::MemorySystem::current().files.file(infoPath())->isReadOnly = true;
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
