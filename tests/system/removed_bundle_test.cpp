#include "ClientComm/platform/removed_bundle.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "tests/support/child_process.h"
#include "tests/support/permissions.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::moveAside;
using clientcomm::pathBeforeRemoval;
using support::ChildProcess;
using support::installedHelperPath;

using Strings = std::vector<std::string>;
using Processes = std::vector<std::int32_t>;

Strings placesMovedAsideFrom(const std::string& path) {
  Strings places;
  EXPECT_TRUE(clientcomm::placesMovedAsideFrom(path, places).isOk());
  return places;
}

std::optional<Processes> processesRunningBelow(const std::string& path) {
  Processes processes;
  const bool isRead = clientcomm::processesRunningBelow(path, processes).isOk();
  return isRead ? std::optional(processes) : std::nullopt;
}

constexpr uid_t kSomebodyElse = 65534;

bool isKnownAsInstalledHelper() {
  return TQHPProcessList::share().applicationIsRunning(support::helperIdentifier(),
                                                       installedHelperPath());
}

// A program that was started by hand and has written nothing about itself.
const support::Role silentRole("silent", [](const std::vector<std::string>& /*arguments*/) {
  std::puts("ready");
  std::fflush(stdout);
  for (;;) pause();
  return 0;
});

ChildProcess runSilentHelper() {
  ChildProcess process = support::runApplication(support::makeApplication(
      support::kHelperName, support::helperIdentifier(), "silent", {}, support::kInstallFolder));
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

TEST(RemovedBundle, IsGoneFromItsPathAndWholeInItsPrivatePlace) {
  const std::string helper = support::makeHelper(support::kInstallFolder);
  std::string place;
  ASSERT_TRUE(moveAside(helper, place).isOk());
  EXPECT_FALSE(fs::exists(helper));
  EXPECT_EQ(placesMovedAsideFrom(helper), Strings{place});
  EXPECT_TRUE(fs::exists(place + "/Test Helper.app/Contents/Info.plist"));
  EXPECT_TRUE(placesMovedAsideFrom(support::sandbox() + "/install/Other.app").empty());
}

TEST(RemovedBundle, IsMovedThoughItsFolderIsReadOnly) {
  const std::string helper = support::makeHelper(support::kInstallFolder);
  ASSERT_EQ(chmod(helper.c_str(), 0555), 0);
  const support::BoundByPermissions bound;
  std::string place;
  EXPECT_TRUE(moveAside(helper, place).isOk());
  EXPECT_FALSE(fs::exists(helper));
  EXPECT_TRUE(clientcomm::removeItemAtPath(place).isOk());
}

TEST(RemovedBundle, OfAnotherUserIsMovedToo) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  const ChildProcess process = runSilentHelper();
  ASSERT_EQ(chown(installedHelperPath().c_str(), kSomebodyElse, kSomebodyElse), 0);
  const support::BoundByPermissions bound;
  std::string place;
  ASSERT_TRUE(moveAside(installedHelperPath(), place).isOk());
  EXPECT_FALSE(fs::exists(installedHelperPath()));
  EXPECT_EQ(placesMovedAsideFrom(installedHelperPath()), Strings{place});
  EXPECT_EQ(processesRunningBelow(place), Processes{process.pid()});
  EXPECT_TRUE(isKnownAsInstalledHelper());
}

TEST(RemovedBundle, ThatCannotBeMovedStaysAsItIs) {
  const std::string helper = support::makeHelper(support::kInstallFolder);
  const support::SealedFolder sealed(support::sandbox() + "/install");
  const support::BoundByPermissions bound;
  std::string place;
  EXPECT_FALSE(moveAside(helper, place).isOk());
  EXPECT_TRUE(fs::exists(helper + "/Contents/Info.plist"));
  EXPECT_TRUE(placesMovedAsideFrom(helper).empty());
  EXPECT_FALSE(moveAside(support::sandbox() + "/missing/Helper.app", place).isOk());
}

TEST(RemovedBundle, LeavesNoFolderWhereThereWasNothingToMove) {
  fs::create_directories(support::sandbox() + "/install");
  std::string place;
  EXPECT_FALSE(moveAside(installedHelperPath(), place).isOk());
  EXPECT_TRUE(fs::is_empty(support::sandbox() + "/install"));
}

TEST(RemovedBundle, IsThePathOfTheProcessesThatRunFromIt) {
  const ChildProcess process = runSilentHelper();
  ASSERT_TRUE(isKnownAsInstalledHelper());
  std::string place;
  ASSERT_TRUE(moveAside(installedHelperPath(), place).isOk());
  EXPECT_TRUE(isKnownAsInstalledHelper());
  EXPECT_EQ(processesRunningBelow(place), Processes{process.pid()});
  // A link on the way to it makes no difference.
  fs::create_directory_symlink(support::sandbox(), support::sandbox() + "/link");
  EXPECT_EQ(
      processesRunningBelow(support::sandbox() + "/link" + place.substr(support::sandbox().size())),
      Processes{process.pid()});
}

TEST(RemovedBundle, KeepsItsProcessesKnownWhenItsFilesAreDeletedAndTheNewOneIsThere) {
  const ChildProcess process = runSilentHelper();
  std::string place;
  ASSERT_TRUE(moveAside(installedHelperPath(), place).isOk());
  support::makeHelper(support::kInstallFolder, "2.0");
  EXPECT_TRUE(isKnownAsInstalledHelper());
  ASSERT_TRUE(clientcomm::removeItemAtPath(place).isOk());
  EXPECT_TRUE(isKnownAsInstalledHelper());
  EXPECT_EQ(processesRunningBelow(place), Processes{});
  EXPECT_EQ(processesRunningBelow(installedHelperPath()), Processes{});
}

// Moves its own bundle aside before it has read its Info dictionary, and puts another one there
// where it is told to.
const support::Role movedRole("moved", [](const std::vector<std::string>& arguments) {
  std::string place;
  if (!moveAside(installedHelperPath(), place).isOk()) return 1;
  if (!arguments.empty()) support::makeHelper(support::kInstallFolder, arguments.front());
  const clientcomm::Bundle& bundle = clientcomm::Bundle::mainBundle();
  std::puts(bundle.infoString("CFBundleVersion").value_or("none").c_str());
  std::puts(bundle.bundlePath().c_str());
  std::fflush(stdout);
  return 0;
});

TEST(RemovedBundle, LeavesAProcessThatHasNotReadItsOwnInfoDictionaryWithIt) {
  for (const Strings& arguments : {Strings{}, Strings{"2.0"}}) {
    fs::remove_all(support::sandbox() + "/" + support::kInstallFolder);
    ChildProcess process = support::runApplication(
        support::makeApplication(support::kHelperName, support::helperIdentifier(), "moved",
                                 {{"CFBundleVersion", "1.5"}}, support::kInstallFolder),
        arguments);
    EXPECT_EQ(process.readLine(), "1.5");
    EXPECT_EQ(pathBeforeRemoval(process.readLine().value_or("")), installedHelperPath());
    EXPECT_EQ(process.wait(), 0);
  }
}

TEST(RemovedBundle, MayStillRunWhereTheProcessesCannotBeRead) {
  const std::string helper = support::makeHelper(support::kInstallFolder);
  EXPECT_EQ(processesRunningBelow(helper), Processes{});
  EXPECT_EQ(processesRunningBelow(helper + "/missing"), Processes{});
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none{0, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(processesRunningBelow(helper), std::nullopt);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST(RemovedName, LeadsBackToThePathBefore) {
  EXPECT_EQ(pathBeforeRemoval("/a/.B.app.removed-1-2/B.app"), "/a/B.app");
  EXPECT_EQ(pathBeforeRemoval("/a/.B.app.removed-1-2"), "/a/B.app");
  const std::string name = std::string(240, 'n') + ".app";
  EXPECT_EQ(pathBeforeRemoval("/a/" + clientcomm::nextRemovedName(name) + "/" + name),
            "/a/" + name);
  EXPECT_EQ(clientcomm::bundleOfExecutable("/a/.B.app.removed-1-2/Contents/Linux/B"),
            "/a/.B.app.removed-1-2");
}

TEST(RemovedName, LeavesEveryOtherPathAlone) {
  for (const std::string path :
       {"/a/B.app", "/a/.B.app.removed-1-2/C.app", "/a/.B.app.removed-1/B.app",
        "/a/.B.app.removed-1-2x/B.app", "/a/B.app.removed-1-2/B.app", "/a/.B.app.removed--2/B.app",
        "/a/.removed-1-2", "/a/.removed-1-2/B.app", "/", "B.app", ""}) {
    EXPECT_EQ(pathBeforeRemoval(path), path);
  }
  EXPECT_EQ(clientcomm::bundleOfExecutable("/a/.B.removed-1-2/Contents/Linux/B"), "");
}

}  // namespace
