#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "ClientComm/platform/bundle_contents.h"
#include "ClientComm/platform/own_process.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::InfoReading;
using clientcomm::isExecutableFile;
using clientcomm::isSameBundle;
using clientcomm::PropertyListDictionary;
using clientcomm::readInfoDictionary;

TEST(BundleContentsConformance, TellsAnExecutableFromOtherFilesAndFolders) {
  EXPECT_TRUE(isExecutableFile(clientcomm::ownExecutablePath()));
  support::writeFile(support::sandbox() + "/file", "");
  for (const char* path : {"/file", "/config", "/missing", "/file/below"}) {
    EXPECT_FALSE(isExecutableFile(support::sandbox() + path)) << path;
  }
}

TEST(BundleContentsConformance, KnowsABundleByEverySpellingOfItsPath) {
  const std::string folder = support::sandbox() + "/apps";
  support::writeFile(folder + "/Some.app/file", "");
  support::writeFile(folder + "/Other.app/file", "");
  EXPECT_TRUE(isSameBundle(folder + "/Some.app", folder + "/Some.app"));
  EXPECT_TRUE(isSameBundle(folder + "/Some.app/", folder + "//Some.app"));
  EXPECT_FALSE(isSameBundle(folder + "/Some.app", folder + "/Other.app"));
  EXPECT_FALSE(isSameBundle(folder + "/Some.app", folder + "/some.app"));
}

TEST(BundleContentsConformance, KnowsABundleThatIsGoneByItsVeryPath) {
  const std::string path = support::sandbox() + "/Gone.app";
  EXPECT_TRUE(isSameBundle(path, path));
  EXPECT_FALSE(isSameBundle(path, path + "/"));
  EXPECT_FALSE(isSameBundle(path, support::sandbox() + "/Other.app"));
}

TEST(BundleContentsConformance, ReadsAnInfoDictionary) {
  const std::string path = support::sandbox() + "/Info.plist";
  support::writeFile(path, "CFBundleName = Some;");
  std::optional<PropertyListDictionary> info;
  EXPECT_EQ(readInfoDictionary(path, info), InfoReading::kDone);
  EXPECT_EQ(info, (PropertyListDictionary{{"CFBundleName", "Some"}}));
}

TEST(BundleContentsConformance, IsDoneWithAnInfoDictionaryThatIsMissingOrMalformed) {
  support::writeFile(support::sandbox() + "/malformed", "<plist><dict>");
  for (const char* path : {"/malformed", "/missing", "/malformed/below", "/config"}) {
    std::optional<PropertyListDictionary> info = PropertyListDictionary{{"from", "before"}};
    EXPECT_EQ(readInfoDictionary(support::sandbox() + path, info), InfoReading::kDone) << path;
    EXPECT_EQ(info, std::nullopt) << path;
  }
}

}  // namespace
