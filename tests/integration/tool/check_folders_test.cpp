#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/property_list.h"
#include "tests/integration/tool/check_fixture.h"
#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/helper_files.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// What `clientcomm check` says to mistakes in folders, mounts and the environment, and to what
// earlier processes left.

namespace {

namespace fs = std::filesystem;
using check_test::at;
using check_test::changeHostInfo;
using check_test::changeInfo;
using check_test::installHelper;
using check_test::mountInstallFolder;
using check_test::Row;
using tool_test::loseRightsOfRoot;

constexpr char kFolder[] = "Helper loaction path";
constexpr uid_t kAnotherUser = 54321;

std::string runtimeFolder() { return std::string(std::getenv("XDG_RUNTIME_DIR")) + "/ClientComm"; }

// Until the test ends.
void lockUntilTheEnd(const std::string& folder) {
  static const clientcomm::DirectoryLock lock(folder, std::chrono::seconds(20));
  ASSERT_TRUE(lock.isHeld());
}

void giveToAnotherUser(const std::string& path) {
  if (chown(path.c_str(), kAnotherUser, kAnotherUser) != 0) GTEST_SKIP() << "this takes root";
}

// The user's own folder would take its place.
void requireNoSessionDirectory() {
  if (fs::exists("/run/user/" + std::to_string(geteuid()))) {
    GTEST_SKIP() << "this user has a session directory";
  }
}

const Row kRows[] = {
    {"HelperOfTheSameVersionIsInstalled", [] { installHelper("1.0"); }, {}, 0},
    {"OlderHelperIsInstalled", [] { installHelper("0.9"); }, {}, 0},
    {"InstallFolderIsMissing", [] { fs::remove(at("install")); }, {}, 0},
    {"InstallFolderIsBelowHome",
     [] {
       changeHostInfo({}, {{kFolder, "~/lib/product"}});
     },
     {},
     0},
    {"InstallFolderIsRelative",
     [] {
       changeHostInfo({}, {{kFolder, "lib/product"}});
     },
     {"install-folder-relative"}},
    {"InstallFolderIsOfAnotherUser",
     [] { giveToAnotherUser(at("install")); },
     {"install-folder-not-owned"}},
    {"InstallFolderIsAFile",
     [] {
       fs::remove(at("install"));
       support::writeFile(at("install"), "a file");
     },
     {"install-folder-not-made"}},
    {"InstallFolderCannotBeMade",
     [] {
       fs::create_directory(at("sealed"));
       chmod(at("sealed").c_str(), 0555);
       changeHostInfo({}, {{kFolder, at("sealed/install")}});
     },
     {"install-folder-not-made"},
     1,
     loseRightsOfRoot},
    {"InstallFolderCannotBeWritten",
     [] { chmod(at("install").c_str(), 0555); },
     {"install-folder-not-writable"},
     1,
     loseRightsOfRoot},
    {"InstallFolderNeedsNoWriting",
     [] {
       installHelper("1.0");
       chmod(at("install").c_str(), 0555);
     },
     {"install-folder-not-writable"},
     0,
     loseRightsOfRoot},
    {"InstallFolderIsMountedReadOnly",
     [] { mountInstallFolder(MS_RDONLY, ""); },
     {"mounted-read-only"}},
    {"InstallFolderIsMountedNoexec", [] { mountInstallFolder(MS_NOEXEC, ""); }, {"mounted-noexec"}},
    {"InstallFolderHasNoSpace", [] { mountInstallFolder(0, "size=4k"); }, {"install-folder-full"}},
    {"InstallFolderIsLocked",
     [] {
       installHelper("1.0");
       lockUntilTheEnd(at("install"));
     },
     {"install-folder-locked"},
     0},
    {"InstalledHelperIsNewer", [] { installHelper("2.0"); }, {"installed-helper-newer"}, 0},
    {"InstalledHelperHasAnotherIdentifier",
     [] {
       changeInfo(installHelper("1.0"), {}, {{"CFBundleIdentifier", "com.example.other"}});
     },
     {"helper-identifier-differs"}},
    {"RemovalIsUnfinished",
     [] { fs::create_directory(at("install/.Test Helper.app.removed-4711-1")); },
     {"removal-unfinished"},
     0},
    {"MarkOfAnEarlierVersionIsLeft",
     [] { support::writeFile(at("install/.Test Helper.app.removed"), ""); },
     {"removal-unfinished"},
     0},
    {"CopyIsUnfinished",
     [] { fs::create_directory(at("install/.Test Helper.app.partial-4711-1")); },
     {"copy-unfinished"},
     0},
    {"OtherDotFilesAreNoLeftovers",
     [] { support::writeFile(at("install/.Other.app.partial-4711-1"), ""); },
     {},
     0},
    {"VariableIsRelative",
     [] { setenv("XDG_CONFIG_HOME", "config", 1); },
     {"environment-ignored"},
     0},
    {"RuntimeVariableIsRelative",
     [] {
       requireNoSessionDirectory();
       setenv("XDG_RUNTIME_DIR", "run", 1);
     },
     {"environment-ignored"},
     0},
    {"RuntimeVariableIsUnset",
     [] {
       requireNoSessionDirectory();
       unsetenv("XDG_RUNTIME_DIR");
     },
     {"runtime-directory-unset"},
     0},
    {"RuntimeDirectoryIsMissing",
     [] {
       requireNoSessionDirectory();
       setenv("XDG_RUNTIME_DIR", "/run/user/4294967294", 1);
     },
     {"runtime-directory-refused"},
     0},
    {"RuntimeFolderIsAFile",
     [] {
       fs::remove_all(runtimeFolder());
       support::writeFile(runtimeFolder(), "");
     },
     {"runtime-folder-unusable"}},
    {"RuntimeFolderIsALink",
     [] {
       fs::remove_all(runtimeFolder());
       fs::create_directory_symlink(at("install"), runtimeFolder());
     },
     {"runtime-folder-unusable"}},
    {"RuntimeFolderIsOfAnotherUser",
     [] {
       fs::create_directories(runtimeFolder());
       giveToAnotherUser(runtimeFolder());
     },
     {"runtime-folder-unusable"}},
    {"RuntimeFolderCannotBeMade",
     [] {
       setenv("XDG_RUNTIME_DIR", at("sealed").c_str(), 1);
       fs::create_directory(at("sealed"));
       chmod(at("sealed").c_str(), 0555);
     },
     {"runtime-folder-unusable"},
     1,
     loseRightsOfRoot},
    {"RuntimeFolderIsOpenToOthers",
     [] { fs::create_directories(runtimeFolder()); },
     {"runtime-folder-open"},
     0,
     [] { chmod(runtimeFolder().c_str(), 0755); }},
    {"RuntimeFolderIsLocked",
     [] {
       fs::create_directories(runtimeFolder());
       chmod(runtimeFolder().c_str(), 0700);
       lockUntilTheEnd(runtimeFolder());
     },
     {"launch-locked"},
     0},
    {"ServerIsClosed",
     [] {
       support::writeHelperPreferences({{"TQHPServerClosed", true}});
     },
     {"server-closed"},
     0},
    {"ServerIsOpen",
     [] {
       support::writeHelperPreferences({{"TQHPServerClosed", false}});
     },
     {},
     0},
    {"SettingsWereDamaged",
     [] {
       support::writeFile(support::preferencesPath(support::helperIdentifier()) + ".corrupt-1",
                          "damaged");
     },
     {"defaults-damaged"},
     0},
};

const check_test::Rows kRegistered(kRows);

using CheckFolders = check_test::CheckTable;

TEST_P(CheckFolders, IsFoundAndNamed) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Mistake, CheckFolders, testing::ValuesIn(kRows), check_test::nameOf);

}  // namespace
