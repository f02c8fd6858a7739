#include "ClientComm/platform/bundle.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/path.h"
#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::Bundle;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using support::ChildProcess;
using support::writeFile;

class BundleTest : public testing::Test {
 protected:
  const std::string path_ = support::sandbox() + "/" +
                            testing::UnitTest::GetInstance()->current_test_info()->name() + ".app";

  std::string at(const std::string& name) const { return path_ + "/" + name; }
  void writeInfo(const PropertyListDictionary& info) const {
    writeFile(at("Contents/Info.plist"), clientcomm::xmlPropertyList(info));
  }
  void writeProgram(const std::string& name) const {
    writeFile(at(name), "#!/bin/sh\n");
    ASSERT_EQ(chmod(at(name).c_str(), 0755), 0);
  }
};

TEST_F(BundleTest, ReadsItsInfoDictionary) {
  writeInfo(
      {{"CFBundleIdentifier", "com.example.helper"}, {"PID", "P1"}, {"Flag", true}, {"Empty", ""}});
  const Bundle bundle(path_);
  EXPECT_EQ(bundle.bundlePath(), path_);
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.helper");
  EXPECT_EQ(bundle.infoString("PID"), "P1");
  EXPECT_EQ(bundle.infoString("Empty"), "") << "an empty string is not an absent one";
  EXPECT_EQ(bundle.infoString("Flag"), std::nullopt) << "not a string";
  EXPECT_EQ(bundle.infoValue("Flag"), PropertyListValue(true));
  EXPECT_EQ(bundle.infoString("pid"), std::nullopt) << "keys are matched letter for letter";
  EXPECT_EQ(bundle.infoValue("Missing"), std::nullopt);
}

TEST_F(BundleTest, HasAnEmptyInfoDictionaryWhenItIsMissingOrMalformed) {
  EXPECT_TRUE(Bundle(path_).infoDictionary().empty());
  EXPECT_EQ(Bundle(path_).bundleIdentifier(), std::nullopt);
  writeFile(at("Contents/Info.plist"), "<plist><dict><key>cut");
  EXPECT_TRUE(Bundle(path_).infoDictionary().empty());
  writeFile(at("Contents/Info.plist"),
            "<plist version=\"1.0\"><string>no dictionary</string></plist>");
  EXPECT_TRUE(Bundle(path_).infoDictionary().empty());
  EXPECT_TRUE(Bundle("").infoDictionary().empty());
}

TEST_F(BundleTest, ReadsItsInfoDictionaryAgainWhereTheFirstTimeNoDescriptorWasFree) {
  writeInfo({{"CFBundleIdentifier", "com.example.helper"}});
  const Bundle bundle(path_);
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(bundle.bundleIdentifier(), std::nullopt);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.helper");
}

TEST_F(BundleTest, KeepsTheInfoDictionaryAsItStoodAtTheFirstUse) {
  writeInfo({{"CFBundleIdentifier", "com.example.old"}});
  const Bundle bundle(path_);
  writeInfo({{"CFBundleIdentifier", "com.example.first"}});
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.first")
      << "nothing is read before it is asked for";
  writeInfo({{"CFBundleIdentifier", "com.example.later"}});
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.first");
  fs::remove_all(path_);
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.first");
}

TEST_F(BundleTest, LooksUpLocalizedValuesInTheFilesAsTheyStand) {
  setenv("LANG", "de_DE.UTF-8", 1);
  writeInfo({{"TipsEnable", true}});
  const Bundle bundle(path_);
  EXPECT_EQ(bundle.infoValue("TipsEnable"), PropertyListValue(true));
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("TipsEnable"), PropertyListValue(true));
  writeInfo({{"TipsEnable", false}});
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("TipsEnable"), PropertyListValue(false));
  EXPECT_EQ(bundle.infoValue("TipsEnable"), PropertyListValue(true)) << "the kept one is unchanged";
  writeFile(at("Contents/Resources/de.lproj/InfoPlist.strings"), "\"TipsEnable\" = \"1\";");
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("TipsEnable"), PropertyListValue("1"));
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("EnableAD"), std::nullopt);
  fs::remove_all(path_);
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("TipsEnable"), std::nullopt);
}

TEST_F(BundleTest, ReadsLocalizedValuesFromTheFirstInfoPlistStringsAlone) {
  setenv("LANGUAGE", "fr_CA:de", 1);
  writeInfo({{"Name", "plain"}, {"Other", "plain"}, {"CFBundleDevelopmentRegion", "en"}});
  const Bundle bundle(path_);
  const auto name = [&bundle] { return bundle.objectForInfoDictionaryKey("Name"); };
  writeFile(at("Contents/Resources/fr.lproj/Localizable.strings"), "\"Name\" = \"elsewhere\";");
  writeFile(at("Contents/Resources/ja.lproj/InfoPlist.strings"), "\"Name\" = \"Nihongo\";");
  EXPECT_EQ(name(), PropertyListValue("plain")) << "neither another table nor another language";
  const std::pair<const char*, const char*> tables[] = {{"en.lproj/", "English"},
                                                        {"de.lproj/", "Deutsch"},
                                                        {"fr.lproj/", "Français"},
                                                        {"fr_CA.lproj/", "Français canadien"},
                                                        {"", "global"}};
  for (const auto& [folder, value] : tables) {
    writeFile(at("Contents/Resources/" + std::string(folder) + "InfoPlist.strings"),
              "\"Name\" = \"" + std::string(value) + "\";");
    EXPECT_EQ(name(), PropertyListValue(value)) << folder;
  }
  writeFile(at("Contents/Resources/de.lproj/InfoPlist.strings"), "\"Other\" = \"Deutsch\";");
  EXPECT_EQ(bundle.objectForInfoDictionaryKey("Other"), PropertyListValue("plain"))
      << "the tables after the first are not read";
  writeFile(at("Contents/Resources/InfoPlist.strings"), "<plist>");
  EXPECT_EQ(name(), PropertyListValue("plain"));
}

TEST_F(BundleTest, FindsItsExecutableInEitherFolder) {
  writeInfo({{"CFBundleExecutable", "Program"}});
  const Bundle bundle(path_);
  EXPECT_EQ(bundle.executablePath(), std::nullopt);
  writeProgram("Contents/MacOS/Program");
  EXPECT_EQ(bundle.executablePath(), at("Contents/MacOS/Program"));
  writeProgram("Contents/Linux/Program");
  EXPECT_EQ(bundle.executablePath(), at("Contents/Linux/Program"));
}

TEST_F(BundleTest, NamesItsExecutableAfterItselfByDefault) {
  const std::string name = clientcomm::lastPathComponent(path_);
  const std::string program = "Contents/Linux/" + name.substr(0, name.size() - 4);
  writeProgram(program);
  EXPECT_EQ(Bundle(path_).executablePath(), at(program));
}

TEST_F(BundleTest, HasNoExecutableThatCannotBeExecuted) {
  writeInfo({{"CFBundleExecutable", "Program"}});
  writeFile(at("Contents/Linux/Program"), "text");
  ASSERT_EQ(chmod(at("Contents/Linux/Program").c_str(), 0644), 0);
  EXPECT_EQ(Bundle(path_).executablePath(), std::nullopt);
  fs::remove(at("Contents/Linux/Program"));
  fs::create_directory(at("Contents/Linux/Program"));
  EXPECT_EQ(Bundle(path_).executablePath(), std::nullopt) << "a folder is none";
}

TEST_F(BundleTest, IsNotLedOutOfItsFolderByTheExecutablesName) {
  writeProgram("Contents/other");
  for (const char* name : {"../other", "", "/bin/sh", ".."}) {
    writeInfo({{"CFBundleExecutable", name}});
    EXPECT_EQ(Bundle(path_).executablePath(), std::nullopt) << name;
  }
}

TEST_F(BundleTest, FindsResourcesBesideTheOthersFirst) {
  setenv("LANGUAGE", "fr:de", 1);
  const Bundle bundle(path_);
  EXPECT_EQ(bundle.resourcePath(), at("Contents/Resources"));
  EXPECT_EQ(bundle.pathForResource("Help", "html"), std::nullopt);
  writeFile(at("Contents/Resources/de.lproj/Help.html"), "");
  EXPECT_EQ(bundle.pathForResource("Help", "html"), at("Contents/Resources/de.lproj/Help.html"));
  writeFile(at("Contents/Resources/fr.lproj/Help.html"), "");
  EXPECT_EQ(bundle.pathForResource("Help", "html"), at("Contents/Resources/fr.lproj/Help.html"));
  writeFile(at("Contents/Resources/Help.html"), "");
  EXPECT_EQ(bundle.pathForResource("Help", "html"), at("Contents/Resources/Help.html"));
}

TEST_F(BundleTest, FindsResourcesOfTheDevelopmentRegionLast) {
  setenv("LANGUAGE", "de", 1);
  writeInfo({{"CFBundleDevelopmentRegion", "sv"}});
  const Bundle bundle(path_);
  for (const char* language : {"de", "English", "ja"}) {
    writeFile(at("Contents/Resources/" + std::string(language) + ".lproj/x"), "");
  }
  writeFile(at("Contents/Resources/ja.lproj/Help.html"), "");
  EXPECT_EQ(bundle.pathForResource("Help", "html"), std::nullopt);
  writeFile(at("Contents/Resources/Swedish.lproj/Help.html"), "");
  EXPECT_EQ(bundle.pathForResource("Help", "html"),
            at("Contents/Resources/Swedish.lproj/Help.html"));
  writeFile(at("Contents/Resources/de.lproj/Help.html"), "");
  EXPECT_EQ(bundle.pathForResource("Help", "html"), at("Contents/Resources/de.lproj/Help.html"));
  writeInfo({});
  writeFile(at("Contents/Resources/English.lproj/Notes.html"), "");
  EXPECT_EQ(Bundle(path_).pathForResource("Notes", "html"),
            at("Contents/Resources/English.lproj/Notes.html"))
      << "English where the bundle names no region";
}

TEST_F(BundleTest, FindsABundleAmongItsResources) {
  fs::create_directories(at("Contents/Resources/Test Helper.app"));
  writeFile(at("Contents/Resources/README"), "");
  EXPECT_EQ(Bundle(path_).pathForResource("Test Helper", "app"),
            at("Contents/Resources/Test Helper.app"));
  EXPECT_EQ(Bundle(path_).pathForResource("README", ""), at("Contents/Resources/README"));
  EXPECT_EQ(Bundle(path_).pathForResource("", "app"), std::nullopt);
  EXPECT_EQ(Bundle(path_).pathForResource("", ""), std::nullopt);
}

TEST_F(BundleTest, TreatsAnyOtherFolderAsResources) {
  writeFile(at("Contents/Resources/zh_CN.lproj/InfoPlist.strings"), "");
  writeInfo({{"CFBundleIdentifier", "com.example.helper"}});
  const Bundle resources(at("Contents/Resources"));
  EXPECT_EQ(resources.resourcePath(), at("Contents/Resources"));
  EXPECT_EQ(resources.pathForResource("zh_CN", "lproj"), at("Contents/Resources/zh_CN.lproj"));
  EXPECT_EQ(resources.pathForResource("fr", "lproj"), std::nullopt);
  EXPECT_TRUE(resources.infoDictionary().empty());
  EXPECT_EQ(resources.executablePath(), std::nullopt);
}

TEST_F(BundleTest, ListsResourcesOfATypeInAnyFolder) {
  for (const char* name : {"Contents/a.plist", "Contents/b.plist", "Contents/c.PLIST",
                           "Contents/.plist", "Contents/plist", "Contents/Resources/d.plist"}) {
    writeFile(at(name), "");
  }
  auto paths = Bundle(path_).pathsForResourcesOfType("plist", "Contents");
  std::sort(paths.begin(), paths.end());
  EXPECT_EQ(paths, (std::vector<std::string>{at("Contents/a.plist"), at("Contents/b.plist")}));
  EXPECT_TRUE(Bundle(path_).pathsForResourcesOfType("plist", "Missing").empty());
}

TEST_F(BundleTest, KeepsItsPathAsItStands) {
  writeInfo({{"CFBundleIdentifier", "com.example.helper"}});
  const Bundle bundle(path_ + "/");
  EXPECT_EQ(bundle.bundlePath(), path_ + "/");
  EXPECT_EQ(bundle.bundleIdentifier(), "com.example.helper");
  EXPECT_EQ(bundle.resourcePath(), at("Contents/Resources"));
  const std::string bytes = support::sandbox() + "/\xFF\xFE.app";
  writeFile(bytes + "/Contents/Info.plist",
            clientcomm::xmlPropertyList({{"CFBundleIdentifier", "com.example.bytes"}}));
  EXPECT_EQ(Bundle(bytes).bundleIdentifier(), "com.example.bytes");
}

TEST_F(BundleTest, CanBeMoved) {
  writeInfo({{"CFBundleIdentifier", "com.example.helper"}});
  Bundle bundle(support::sandbox());
  bundle = Bundle(path_);
  const Bundle moved(std::move(bundle));
  EXPECT_EQ(moved.bundleIdentifier(), "com.example.helper");
}

// --- The main bundle ---

TEST(MainBundle, EnclosesTheRunningExecutable) {
  EXPECT_EQ(Bundle::mainBundle().bundlePath(), support::hostBundlePath());
  EXPECT_EQ(Bundle::mainBundle().bundleIdentifier(), "com.example.testhost");
  EXPECT_EQ(Bundle::mainBundle().executablePath(), clientcomm::ownExecutablePath());
  EXPECT_EQ(&Bundle::mainBundle(), &Bundle::mainBundle());
}

TEST(MainBundle, KeepsItsPathWhenItIsRemoved) {
  auto child = ChildProcess::fork([] {
    const std::string executable = clientcomm::ownExecutablePath();
    fs::remove_all(support::hostBundlePath());
    return Bundle::mainBundle().bundlePath() == support::hostBundlePath() &&
                   clientcomm::ownExecutablePath() == executable
               ? 0
               : 1;
  });
  EXPECT_EQ(child.wait(), 0);
}

constexpr std::string_view kBundleMark = "main bundle: ";

TEST(MainBundle, LiesAroundItsExecutable) {
  const std::string path = Bundle::mainBundle().bundlePath();
  EXPECT_TRUE(clientcomm::ownExecutablePath().starts_with(path + "/"));
  std::cout << kBundleMark << path << std::endl;
}

// Runs the test above from `executable`, and gives the main bundle's path that it tells.
std::string mainBundlePathFrom(const std::string& executable) {
  fs::create_directories(fs::path(executable).parent_path());
  fs::copy_file("/proc/self/exe", executable);
  auto child =
      ChildProcess::spawn({executable, "--gtest_filter=MainBundle.LiesAroundItsExecutable"});
  std::string found;
  while (const auto line = child.readLine()) {
    if (line->starts_with(kBundleMark)) found = line->substr(kBundleMark.size());
  }
  EXPECT_EQ(child.wait(), 0);
  return found;
}

TEST(MainBundle, IsTheOneAroundEitherFolderOfExecutables) {
  const std::string root = support::sandbox() + "/elsewhere";
  EXPECT_EQ(mainBundlePathFrom(root + "/A b.app/Contents/MacOS/Program"), root + "/A b.app");
  EXPECT_EQ(
      mainBundlePathFrom(root + "/Outer.app/Contents/Resources/Inner.app/Contents/Linux/Program"),
      root + "/Outer.app/Contents/Resources/Inner.app");
}

TEST(MainBundle, IsTheExecutablesFolderWhereThereIsNoBundle) {
  const std::string root = support::sandbox() + "/elsewhere";
  for (const char* folder : {"/bin", "/A.app/Contents/Helpers", "/A.bundle/Contents/Linux",
                             "/A.app/Linux", "/.app/Contents/Linux"}) {
    EXPECT_EQ(mainBundlePathFrom(root + folder + "/Program"), root + folder);
  }
}

TEST(MainBundle, IsFoundUnderANameThatEndsAsThatOfARemovedFile) {
  const std::string root = support::sandbox() + "/elsewhere";
  EXPECT_EQ(mainBundlePathFrom(root + "/A.app/Contents/Linux/Program (deleted)"), root + "/A.app");
}

}  // namespace
