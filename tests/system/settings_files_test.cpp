// The switches in the host's bundle where only a real file system shows what becomes of them.

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/property_list.h"
#include "tests/support/permissions.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;

std::string contentsPath() { return support::hostBundlePath() + "/Contents"; }
std::string infoPath() { return contentsPath() + "/Info.plist"; }
std::string englishTable() { return contentsPath() + "/Resources/en.lproj/InfoPlist.strings"; }

/// The value of `key` in the file at `path`; nothing when absent.
std::optional<PropertyListValue> valueIn(const std::string& path, const std::string& key) {
  const auto dictionary = clientcomm::dictionaryWithContentsOfFile(path);
  const auto* const value = dictionary ? clientcomm::valueFor(*dictionary, key) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}
std::optional<PropertyListValue> inInfo(const std::string& key) { return valueIn(infoPath(), key); }

class SettingsFilesOnDisk : public testing::Test {
 protected:
  SettingsFilesOnDisk() { support::RecordingTransport::install(); }
};

TEST_F(SettingsFilesOnDisk, ThroughALinkThePropertyListsTargetIsWritten) {
  const std::string target = support::sandbox() + "/elsewhere/Real.plist";
  fs::create_directories(fs::path(target).parent_path());
  fs::rename(infoPath(), target);
  fs::create_symlink(target, infoPath());
  TQHPHelperCommunicate::share().setTipsEnable(false);
  EXPECT_EQ(fs::read_symlink(infoPath()), target);
  EXPECT_EQ(valueIn(target, "TipsEnable"), PropertyListValue(false));
}

TEST_F(SettingsFilesOnDisk, ASwitchInAFolderThatIsNotWritableIsNotLost) {
  support::writeFile(englishTable(), "\"TipsEnable\" = \"1\";\n");
  const support::SealedFolder contents(contentsPath());
  const support::SealedFolder tables(contentsPath() + "/Resources/en.lproj");
  const support::BoundByPermissions bound;
  TQHPHelperCommunicate::share().setTipsEnable(false);
  EXPECT_EQ(inInfo("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(valueIn(englishTable(), "TipsEnable"), PropertyListValue("0"));
}

TEST_F(SettingsFilesOnDisk, ThroughALinkTheTablesTargetIsWritten) {
  const std::string target = support::sandbox() + "/elsewhere/Real.strings";
  support::writeFile(target, "\"TipsEnable\" = \"1\";\n");
  fs::create_directories(fs::path(englishTable()).parent_path());
  fs::create_symlink(target, englishTable());
  TQHPHelperCommunicate::share().setTipsEnable(false);
  EXPECT_EQ(fs::read_symlink(englishTable()), target);
  EXPECT_EQ(valueIn(target, "TipsEnable"), PropertyListValue("0"));
}

}  // namespace
