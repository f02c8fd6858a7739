#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/removed_bundle.h"
#include "tests/support/permissions.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::OptionalString;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using support::installedHelperPath;
using support::kInstallFolder;
using support::kResourceFolder;
using support::makeHelper;
using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kExit[] = "exitHelper:productVersion:";
constexpr char kStart[] = "start:prodeuctVersion:";

std::string resourceHelperPath() {
  return support::sandbox() + "/" + kResourceFolder + "/" + support::kHelperName + ".app";
}

std::string infoPathOf(const std::string& bundle) { return bundle + "/Contents/Info.plist"; }

/// The version that the bundle at `path` has on disk; nil without one.
OptionalString versionOf(const std::string& path) {
  const auto info = clientcomm::dictionaryWithContentsOfFile(infoPathOf(path));
  if (!info || !info->contains("CFBundleVersion")) return std::nullopt;
  return info->at("CFBundleVersion").stringValue();
}

OptionalString installedVersion() { return versionOf(installedHelperPath()); }

void writeInfoOf(const std::string& bundle, const std::string& key,
                 const PropertyListValue& value) {
  auto info = *clientcomm::dictionaryWithContentsOfFile(infoPathOf(bundle));
  info.insert_or_assign(key, value);
  support::writeFile(infoPathOf(bundle), clientcomm::xmlPropertyList(info));
}

void removeVersionOf(const std::string& bundle) {
  auto info = *clientcomm::dictionaryWithContentsOfFile(infoPathOf(bundle));
  info.erase("CFBundleVersion");
  support::writeFile(infoPathOf(bundle), clientcomm::xmlPropertyList(info));
}

/// Writes the host's Info dictionary without any place for the helper, but with `keys`.
void writeHostInfoWith(const PropertyListDictionary& keys) {
  PropertyListDictionary info = support::defaultHostInfo();
  info.erase("Helepr App name");
  info.erase("Helepr loaction path");
  info.erase("Helper loaction path");
  for (const auto& [key, value] : keys) info.insert_or_assign(key, value);
  support::writeHostInfo(info);
}

/// A file of the installed copy by which one copy is told from another.
std::string markerPath() { return installedHelperPath() + "/Contents/marker"; }
void markInstalledCopy() { support::writeFile(markerPath(), "untouched"); }
bool isInstalledCopyUntouched() { return support::readFile(markerPath()) == "untouched"; }

class DeploymentTest : public testing::Test {
 protected:
  TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

  RecordingTransport& recorder_ = RecordingTransport::install();
};

/// The installation by itself: the start-up has passed before there was a helper to install.
class InstallationTest : public DeploymentTest {
 protected:
  InstallationTest() { controller(); }

  void extract() { controller().extractHelper(); }
};

// --- Installing ---

TEST_F(DeploymentTest, TheStartUpInstallsLaunchesAndStartsTheHelper) {
  makeHelper(kResourceFolder, "2.0");
  controller();
  EXPECT_EQ(installedVersion(), "2.0");
  EXPECT_EQ(access(support::executableOf(installedHelperPath()).c_str(), X_OK), 0);
  EXPECT_EQ(support::processesOf(installedHelperPath()).size(), 1U);
  EXPECT_EQ(recorder_.selectors(), (Strings{kStart, "clientIDFormHelper"}));
}

TEST_F(DeploymentTest, TheInstallDirectoryIsMadeWithThoseAboveIt) {
  const std::string directory = support::sandbox() + "/some/where/deep";
  writeHostInfoWith(
      {{"Helepr App name", support::kHelperName}, {"Helper loaction path", directory}});
  makeHelper(kResourceFolder);
  controller();
  EXPECT_EQ(versionOf(directory + "/Test Helper.app"), "1.0");
}

TEST_F(InstallationTest, TheInstalledCopyIsTheResourceCopyFileByFile) {
  makeHelper(kResourceFolder);
  const std::string resources = "/Contents/Resources";
  support::writeFile(resourceHelperPath() + resources + "/en.lproj/Text.strings", "\"a\" = \"b\";");
  fs::create_symlink("en.lproj", resourceHelperPath() + resources + "/default");
  extract();
  EXPECT_EQ(support::readFile(installedHelperPath() + resources + "/en.lproj/Text.strings"),
            "\"a\" = \"b\";");
  EXPECT_EQ(fs::read_symlink(installedHelperPath() + resources + "/default"), "en.lproj");
}

TEST_F(InstallationTest, WithoutAHelperInTheBundleNothingIsInstalled) {
  extract();
  EXPECT_TRUE(fs::is_empty(support::sandbox() + "/install"));
  EXPECT_FALSE(controller().launchHelepr());
}

TEST_F(DeploymentTest, ALaunchInstallsACopyThatIsMissing) {
  makeHelper(kResourceFolder);
  controller();
  fs::remove_all(installedHelperPath());
  EXPECT_TRUE(controller().launchHelepr());
  EXPECT_EQ(installedVersion(), "1.0");
}

// --- Refreshing ---

TEST_F(InstallationTest, AnEqualVersionIsLeftUntouched) {
  makeHelper(kResourceFolder, "1.0");
  makeHelper(kInstallFolder, "1.0");
  markInstalledCopy();
  extract();
  EXPECT_TRUE(isInstalledCopyUntouched());
  EXPECT_EQ(recorder_.countOf(kExit), 0);
}

TEST_F(InstallationTest, ANewerInstalledVersionIsLeftUntouched) {
  makeHelper(kResourceFolder, "2.0");
  makeHelper(kInstallFolder, "2.0.1");
  markInstalledCopy();
  extract();
  EXPECT_TRUE(isInstalledCopyUntouched());
  EXPECT_EQ(installedVersion(), "2.0.1");
}

TEST_F(InstallationTest, AnOlderInstalledVersionIsReplacedWhole) {
  makeHelper(kResourceFolder, "1.0.1");
  makeHelper(kInstallFolder, "1.0");
  markInstalledCopy();
  extract();
  EXPECT_EQ(installedVersion(), "1.0.1");
  EXPECT_FALSE(fs::exists(markerPath())) << "nothing of the old copy is left";
  EXPECT_EQ(recorder_.countOf(kExit), 0) << "none was running";
}

TEST_F(InstallationTest, TheCopyInAnotherUsersFolderIsLeftAloneByTheSuperuser) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  makeHelper(kResourceFolder, "1.0.1");
  makeHelper(kInstallFolder, "1.0");
  markInstalledCopy();
  const std::string folder = support::sandbox() + "/" + kInstallFolder;
  ASSERT_EQ(chown(folder.c_str(), 65534, 65534), 0);
  extract();
  EXPECT_TRUE(isInstalledCopyUntouched());
  ASSERT_EQ(chown(folder.c_str(), 0, 0), 0);
  extract();
  EXPECT_EQ(installedVersion(), "1.0.1") << "as its own";
}

TEST_F(InstallationTest, AnInstalledCopyWithoutAVersionIsReplacedByOneWithANumber) {
  makeHelper(kResourceFolder, "0");
  removeVersionOf(makeHelper(kInstallFolder));
  extract();
  EXPECT_EQ(installedVersion(), "0");
}

TEST_F(InstallationTest, AnInstalledCopyWithoutAVersionIsNewerThanOneWithATextVersion) {
  makeHelper(kResourceFolder, "beta");
  removeVersionOf(makeHelper(kInstallFolder));
  markInstalledCopy();
  extract();
  EXPECT_TRUE(isInstalledCopyUntouched());
}

TEST_F(InstallationTest, AResourceCopyWithoutAVersionReplacesNone) {
  removeVersionOf(makeHelper(kResourceFolder));
  makeHelper(kInstallFolder, "0");
  markInstalledCopy();
  extract();
  EXPECT_TRUE(isInstalledCopyUntouched());
}

TEST_F(InstallationTest, AVersionThatIsNoTextCountsAsAbsent) {
  writeInfoOf(makeHelper(kResourceFolder), "CFBundleVersion", 9);
  makeHelper(kInstallFolder, "1.0");
  markInstalledCopy();
  extract();
  EXPECT_TRUE(isInstalledCopyUntouched());
}

TEST_F(InstallationTest, AResourceCopyWithACorruptInfoDictionaryReplacesNone) {
  support::writeFile(infoPathOf(makeHelper(kResourceFolder, "2.0")), "<plist><dict><key>CFB");
  makeHelper(kInstallFolder, "1.0");
  markInstalledCopy();
  extract();
  EXPECT_TRUE(isInstalledCopyUntouched());
}

TEST_F(InstallationTest, AnInstalledCopyWithACorruptInfoDictionaryIsReplaced) {
  makeHelper(kResourceFolder, "1.0");
  support::writeFile(infoPathOf(makeHelper(kInstallFolder, "1.0")), "<plist><dict><key>CFB");
  extract();
  EXPECT_EQ(installedVersion(), "1.0");
}

TEST_F(InstallationTest, WhatLiesInThePlaceOfTheInstalledCopyIsReplaced) {
  makeHelper(kResourceFolder, "1.0");
  support::writeFile(installedHelperPath(), "a file, no bundle");
  extract();
  EXPECT_EQ(installedVersion(), "1.0");
}

// --- Ending a running older helper ---

TEST_F(DeploymentTest, TheOldHelperIsRemovedThenToldToExitThenReplaced) {
  makeHelper(kResourceFolder, "1.0.1");
  const support::ChildProcess old = support::runInstalledHelper();
  bool wasRemoved = false;
  bool wasCopied = true;
  recorder_.whenSending([&](const support::RecordedCall& call) {
    if (call.selector != kExit) return;
    wasRemoved = !fs::exists(markerPath());
    wasCopied = fs::exists(installedHelperPath());
  });
  markInstalledCopy();
  controller();
  ASSERT_FALSE(recorder_.calls().empty());
  EXPECT_EQ(recorder_.calls().front().selector, kExit);
  EXPECT_EQ(recorder_.calls().front().className, "TQHPHelperControl");
  EXPECT_EQ(recorder_.calls().front().arguments, (Strings{"P100", "1.2.3"}));
  EXPECT_EQ(recorder_.countOf(kExit), 1);
  EXPECT_TRUE(wasRemoved);
  EXPECT_FALSE(wasCopied);
  EXPECT_EQ(installedVersion(), "1.0.1");
}

TEST_F(DeploymentTest, AnOldHelperThatTakesNoEventsYetIsToldToExitAgain) {
  makeHelper(kResourceFolder, "1.0.1");
  const support::ChildProcess old = support::runInstalledHelper();
  recorder_.setRecipient(static_cast<std::uint64_t>(old.pid()));
  recorder_.setStatus(kExit, clientcomm::procNotFound);
  recorder_.whenSending([&](const support::RecordedCall&) {
    if (recorder_.countOf(kExit) == 2) recorder_.setStatus(kExit, clientcomm::noErr);
  });
  controller();
  // By a restart step, where the first attempt took all the time that the start-up has for it.
  EXPECT_TRUE(support::waitUntil([&] {
    controller().autoRestartHelper();
    return recorder_.countOf(kExit) == 2;
  }));
  EXPECT_EQ(installedVersion(), "1.0.1");
}

TEST_F(DeploymentTest, ForAnEarlierRemovalOnlyAProcessThatRunsFromItIsToldToExit) {
  const support::ChildProcess old = support::runInstalledHelper();
  std::string place;
  ASSERT_TRUE(clientcomm::moveAside(installedHelperPath(), place).isOk());
  makeHelper(kResourceFolder);
  makeHelper(kInstallFolder);
  recorder_.setRecipient(static_cast<std::uint64_t>(old.pid()) + 1);
  controller();
  EXPECT_EQ(recorder_.countOf(kExit), 0);
  EXPECT_TRUE(fs::exists(place));
  recorder_.setRecipient(static_cast<std::uint64_t>(old.pid()));
  controller().autoRestartHelper();
  EXPECT_EQ(recorder_.countOf(kExit), 1);
  EXPECT_FALSE(fs::exists(place));
}

TEST_F(DeploymentTest, TheOldHelperIsToldToExitHoweverTheInstallDirectoryIsSpelt) {
  writeHostInfoWith(
      {{"Helepr App name", support::kHelperName}, {"Helper loaction path", "~/lib///family//"}});
  makeHelper(kResourceFolder, "1.0.1");
  const std::string installed = makeHelper("home/lib/family", "1.0");
  const support::ChildProcess old = support::runHelper(installed);
  controller();
  EXPECT_EQ(recorder_.countOf(kExit), 1);
  EXPECT_EQ(versionOf(installed), "1.0.1");
  EXPECT_EQ(support::processesOf(installed), std::vector<pid_t>{old.pid()})
      << "it counts as running for the launch too";
}

/// The entries of the install directory.
Strings installedEntries() {
  return clientcomm::contentsOfDirectoryAtPath(support::sandbox() + "/install");
}

const Strings kHelperAlone = {"Test Helper.app"};

TEST_F(InstallationTest, AReplacementLeavesTheNewCopyAlone) {
  makeHelper(kResourceFolder, "2.0");
  const support::ChildProcess old = support::runInstalledHelper();
  extract();
  EXPECT_EQ(recorder_.countOf(kExit), 1);
  EXPECT_EQ(installedVersion(), "2.0");
  EXPECT_EQ(installedEntries(), kHelperAlone);
}

TEST_F(InstallationTest, WhatADeadHostLeftIsClearedThoughNothingIsInstalled) {
  makeHelper(kResourceFolder, "1.0");
  makeHelper(kInstallFolder, "1.0");
  const std::string beside = support::sandbox() + "/install/.Test Helper.app";
  // The process ID of an unfinished copy may belong to another process by now.
  for (const std::string left :
       {".partial-1-1", ".partial-99999999-1", ".removed-99999999-7", ".removed-1-1", ".removed"}) {
    support::writeFile(beside + left + "/Test Helper.app/Contents/Info.plist", "left");
  }
  extract();
  EXPECT_EQ(installedEntries(), kHelperAlone);
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(InstallationTest, WhatCannotBeDeletedOfTheOldCopyDoesNotStopTheUpgrade) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  makeHelper(kResourceFolder, "v2");
  const std::string kept = makeHelper(kInstallFolder, "v1") + "/Contents/Kept";
  support::writeFile(kept + "/file", "of another user");
  ASSERT_EQ(chown(kept.c_str(), 65534, 65534), 0);
  {
    const support::BoundByPermissions bound;
    extract();
    EXPECT_EQ(installedVersion(), "v2");
    EXPECT_FALSE(fs::exists(installedHelperPath() + "/Contents/Kept"));
    EXPECT_EQ(installedEntries().size(), 2U) << "what cannot be deleted stays beside it";
  }
  extract();
  EXPECT_EQ(installedEntries(), kHelperAlone) << "until a host can delete it";
}

constexpr int kFilesOfLargeHelper = 30;

/// Makes a helper of many files that each hold its version.
void makeLargeHelper(const std::string& folder, const std::string& version) {
  const std::string helper = makeHelper(folder, version);
  for (int i = 0; i < kFilesOfLargeHelper; ++i) {
    support::writeFile(
        helper + "/Contents/Resources/" + std::to_string(i % 5) + "/" + std::to_string(i), version);
  }
}

/// What is at the installed path is looked at through its descriptor. A look counts only when the
/// same directory is there before and after it.
/// @return false when it was there and not whole.
bool isWholeOrMissing() {
  const clientcomm::ScopedFd bundle(
      open(installedHelperPath().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat before = {};
  if (!bundle.isValid() || fstat(bundle.get(), &before) != 0) return true;
  const std::string path = "/proc/self/fd/" + std::to_string(bundle.get());
  const OptionalString version = versionOf(path);
  bool isWhole = version && access((path + "/Contents/Linux/Test Helper").c_str(), X_OK) == 0;
  for (int i = 0; i < kFilesOfLargeHelper && isWhole; ++i) {
    isWhole = support::readFile(path + "/Contents/Resources/" + std::to_string(i % 5) + "/" +
                                std::to_string(i)) == version;
  }
  struct stat after = {};
  const bool isSame = stat(installedHelperPath().c_str(), &after) == 0 &&
                      after.st_dev == before.st_dev && after.st_ino == before.st_ino;
  return isWhole || !isSame;
}

TEST_F(InstallationTest, WhatIsInstalledIsWholeOrMissingAtEveryInstantOfFiftyReplacements) {
  support::ChildProcess watcher = support::ChildProcess::fork([] {
    while (!fs::exists(support::sandbox() + "/done")) {
      if (!isWholeOrMissing()) return 1;
    }
    return 0;
  });
  for (int round = 1; round <= 50; ++round) {
    makeLargeHelper(kResourceFolder, "1." + std::to_string(round));
    extract();
    EXPECT_EQ(installedVersion(), "1." + std::to_string(round));
  }
  support::writeFile(support::sandbox() + "/done", "");
  EXPECT_EQ(watcher.wait(), 0);
  EXPECT_EQ(installedEntries(), kHelperAlone);
}

TEST_F(DeploymentTest, AnOldHelperThatStillRunsAfterARefreshCountsAsRunning) {
  makeHelper(kResourceFolder, "1.0.1");
  const support::ChildProcess old = support::runInstalledHelper();
  controller();
  EXPECT_EQ(recorder_.selectors(), (Strings{kExit, kStart, "clientIDFormHelper"}));
  EXPECT_EQ(support::processesOf(installedHelperPath()), std::vector<pid_t>{old.pid()})
      << "the new copy is not opened beside it";
}

TEST_F(DeploymentTest, OnceTheOldHelperIsGoneTheRestartStepOpensTheNewCopy) {
  makeHelper(kResourceFolder, "1.0.1");
  support::ChildProcess old = support::runInstalledHelper();
  controller();
  old.signal(SIGKILL);
  old.wait();
  recorder_.setStatus("isAlive:prodeuctVersion:", -600);
  EXPECT_EQ(controller().autoRestartHelper(), 0);
  EXPECT_EQ(support::processesOf(installedHelperPath()).size(), 1U);
}

TEST_F(InstallationTest, AHelperThatRunsFromElsewhereIsNotToldToExit) {
  makeHelper(kResourceFolder, "1.0.1");
  makeHelper(kInstallFolder, "1.0");
  const support::ChildProcess elsewhere = support::runHelper(resourceHelperPath());
  extract();
  EXPECT_EQ(installedVersion(), "1.0.1");
  EXPECT_EQ(recorder_.countOf(kExit), 0);
}

TEST_F(InstallationTest, AnotherApplicationInTheInstalledPlaceIsNotToldToExit) {
  makeHelper(kResourceFolder, "1.0.1");
  writeInfoOf(makeHelper(kInstallFolder, "1.0"), "CFBundleIdentifier", "com.example.other");
  const support::ChildProcess other = support::runHelper(installedHelperPath());
  extract();
  EXPECT_EQ(installedVersion(), "1.0.1");
  EXPECT_EQ(recorder_.countOf(kExit), 0);
}

TEST_F(DeploymentTest, AFailedRemovalStillEndsTheOldHelperButCopiesNothing) {
  makeHelper(kResourceFolder, "1.0.1");
  const support::ChildProcess old = support::runInstalledHelper();
  const support::SealedFolder sealed(support::sandbox() + "/install");
  const support::BoundByPermissions bound;
  controller();
  EXPECT_EQ(recorder_.countOf(kExit), 1);
  EXPECT_TRUE(fs::exists(installedHelperPath())) << "what could not be removed stays";
  EXPECT_NE(installedVersion(), "1.0.1") << "nothing was copied over it";
}

TEST_F(InstallationTest, AfterAFailedRemovalNothingIsCopiedEvenWhereThePlaceBecomesFree) {
  makeHelper(kResourceFolder, "1.0.1");
  const support::ChildProcess old = support::runInstalledHelper();
  const std::string install = support::sandbox() + "/install";
  recorder_.whenSending([&](const support::RecordedCall& call) {
    EXPECT_EQ(call.selector, kExit);
    chmod(install.c_str(), 0755);
    fs::remove_all(installedHelperPath());
  });
  const support::SealedFolder sealed(install);
  const support::BoundByPermissions bound;
  extract();
  EXPECT_EQ(recorder_.calls().size(), 1U);
  EXPECT_FALSE(fs::exists(installedHelperPath()));
}

TEST_F(DeploymentTest, AnInstallDirectoryThatCannotBeWrittenLeavesTheHelperUninstalled) {
  makeHelper(kResourceFolder);
  const support::SealedFolder sealed(support::sandbox() + "/install");
  const support::BoundByPermissions bound;
  controller();
  EXPECT_FALSE(fs::exists(installedHelperPath()));
  EXPECT_FALSE(controller().launchHelepr());
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(DeploymentTest, AFileInThePlaceOfTheInstallDirectoryIsLeftAlone) {
  makeHelper(kResourceFolder);
  support::writeFile(support::sandbox() + "/install", "precious");
  controller();
  EXPECT_FALSE(controller().launchHelepr());
  EXPECT_EQ(support::readFile(support::sandbox() + "/install"), "precious");
  EXPECT_TRUE(recorder_.calls().empty());
}

// --- Launching ---

TEST_F(DeploymentTest, AHelperThatRunsIsNotOpenedAgainButStarted) {
  const support::ChildProcess helper = support::runInstalledHelper();
  controller();
  recorder_.forget();
  EXPECT_TRUE(controller().launchHelepr());
  EXPECT_EQ(recorder_.selectors(), (Strings{kStart, "clientIDFormHelper"}));
  EXPECT_EQ(support::processesOf(installedHelperPath()), std::vector<pid_t>{helper.pid()});
}

TEST_F(DeploymentTest, AFailedStartIsStillASuccessfulLaunch) {
  const support::ChildProcess helper = support::runInstalledHelper();
  recorder_.setStatus(-600);
  EXPECT_TRUE(controller().launchHelepr());
}

TEST_F(DeploymentTest, AHelperWithoutAnExecutableIsInstalledButNotLaunched) {
  fs::remove(support::executableOf(makeHelper(kResourceFolder)));
  controller();
  EXPECT_EQ(installedVersion(), "1.0");
  EXPECT_FALSE(controller().launchHelepr());
  EXPECT_TRUE(recorder_.calls().empty()) << "no start command without a helper";
}

TEST_F(DeploymentTest, AHelperThatCannotBeExecutedIsNotLaunched) {
  const std::string executable = support::executableOf(makeHelper(kResourceFolder));
  fs::remove(executable);
  support::writeFile(executable, "no program");
  chmod(executable.c_str(), 0755);
  controller();
  EXPECT_FALSE(controller().launchHelepr());
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(DeploymentTest, AFailedLaunchIsTheRestartStepsStatusOne) {
  recorder_.setStatus("isAlive:prodeuctVersion:", -600);
  EXPECT_EQ(controller().autoRestartHelper(), 1);
}

// --- Where the host wants its helper ---

TEST_F(DeploymentTest, TheFirstKeysOfTheNameAndTheDirectoryAreUsed) {
  makeHelper(kResourceFolder);
  writeHostInfoWith({{"Helepr App name", support::kHelperName},
                     {"Helper App name", "Wrong"},
                     {"Helper loaction path", support::sandbox() + "/first"},
                     {"Helper location path", support::sandbox() + "/second"}});
  controller();
  EXPECT_EQ(versionOf(support::sandbox() + "/first/Test Helper.app"), "1.0");
  EXPECT_FALSE(fs::exists(support::sandbox() + "/second"));
}

TEST_F(DeploymentTest, TheSecondKeysAreUsedWhereTheFirstAreAbsent) {
  makeHelper(kResourceFolder);
  writeHostInfoWith({{"Helper App name", support::kHelperName},
                     {"Helper location path", support::sandbox() + "/second"}});
  controller();
  EXPECT_EQ(versionOf(support::sandbox() + "/second/Test Helper.app"), "1.0");
  EXPECT_EQ(support::processesOf(support::sandbox() + "/second/Test Helper.app").size(), 1U);
}

TEST_F(DeploymentTest, AFirstKeyThatIsNoTextCountsAsAbsent) {
  makeHelper(kResourceFolder);
  writeHostInfoWith({{"Helepr App name", 7},
                     {"Helper App name", support::kHelperName},
                     {"Helper loaction path", PropertyListValue::Array{"/nowhere"}},
                     {"Helper location path", support::sandbox() + "/second"}});
  controller();
  EXPECT_EQ(versionOf(support::sandbox() + "/second/Test Helper.app"), "1.0");
}

TEST_F(DeploymentTest, ATildeIsTheUsersHomeFolderInEitherKey) {
  makeHelper(kResourceFolder);
  const std::string home = support::sandbox() + "/home/Helpers/Test Helper.app";
  for (const char* key : {"Helper loaction path", "Helper location path"}) {
    writeHostInfoWith({{"Helepr App name", support::kHelperName}, {key, "~/Helpers"}});
    support::ChildProcess host = support::ChildProcess::fork([&] {
      RecordingTransport::install();
      TQHPHelperCommunicate::share();
      return versionOf(home) == "1.0" ? 0 : 1;
    });
    EXPECT_EQ(host.wait(), 0) << key;
    fs::remove_all(home);
  }
}

TEST_F(DeploymentTest, WithoutANameNothingIsTouched) {
  makeHelper(kResourceFolder);
  writeHostInfoWith({{"Helper loaction path", support::sandbox() + "/install"}});
  EXPECT_FALSE(controller().launchHelepr());
  EXPECT_FALSE(fs::exists(support::sandbox() + "/install"));
}

TEST_F(DeploymentTest, WithoutADirectoryNothingIsTouched) {
  makeHelper(kResourceFolder);
  writeHostInfoWith({{"Helepr App name", support::kHelperName}});
  const auto count = [] {
    return std::distance(fs::recursive_directory_iterator(support::hostBundlePath()), {});
  };
  const auto before = count();
  EXPECT_FALSE(controller().launchHelepr());
  EXPECT_EQ(count(), before);
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(DeploymentTest, AnEmptyNameOrDirectoryIsNothingToInstall) {
  makeHelper(kResourceFolder);
  const std::string install = support::sandbox() + "/install";
  const PropertyListDictionary cases[] = {
      {{"Helepr App name", ""}, {"Helper loaction path", install}},
      {{"Helepr App name", support::kHelperName}, {"Helper loaction path", ""}}};
  for (const PropertyListDictionary& keys : cases) {
    writeHostInfoWith(keys);
    support::ChildProcess host = support::ChildProcess::fork([] {
      RecordingTransport::install();
      return TQHPHelperCommunicate::share().launchHelepr() ? 1 : 0;
    });
    EXPECT_EQ(host.wait(), 0);
  }
  EXPECT_FALSE(fs::exists(install + "/.app"));
  EXPECT_FALSE(fs::exists(installedHelperPath()));
}

TEST_F(DeploymentTest, AHelperWithoutAnIdentifierInTheHostsInfoIsInstalledAndOpened) {
  makeHelper(kResourceFolder);
  PropertyListDictionary info = support::defaultHostInfo();
  info.erase("Helper Bundle indentifiter");
  support::writeHostInfo(info);
  EXPECT_TRUE(controller().launchHelepr());
  EXPECT_EQ(support::processesOf(installedHelperPath()).size(), 1U);
  EXPECT_EQ(recorder_.last().target, "") << "though no call can reach it";
}

// --- The first application in a folder ---

TEST_F(DeploymentTest, TheFirstApplicationOfAFolderIsFoundByItsExactExtension) {
  const std::string folder = support::sandbox() + "/folder";
  support::writeFile(folder + "/Notes.txt", "");
  fs::create_directories(folder + "/Tool.APP");
  fs::create_directories(folder + "/Sub/Deep.app");
  EXPECT_EQ(TQHPHelperCommunicate::appPath(folder), std::nullopt);
  fs::create_directories(folder + "/Helper.app");
  EXPECT_EQ(TQHPHelperCommunicate::appPath(folder), folder + "/Helper.app");
}

TEST_F(DeploymentTest, AnEmptyOrMissingFolderHasNoApplication) {
  fs::create_directories(support::sandbox() + "/empty");
  EXPECT_EQ(TQHPHelperCommunicate::appPath(support::sandbox() + "/empty"), std::nullopt);
  EXPECT_EQ(TQHPHelperCommunicate::appPath(support::sandbox() + "/missing"), std::nullopt);
  EXPECT_EQ(TQHPHelperCommunicate::appPath(""), std::nullopt);
}

}  // namespace
