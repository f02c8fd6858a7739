#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/posix/recovery_copy.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/integration/diagnosis_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/helper_files.h"
#include "tests/support/permissions.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// Why settings are not read or written.

namespace {

namespace fs = std::filesystem;
using diagnosis::at;
using diagnosis::Record;
using diagnosis::Row;
using diagnosis::startHost;
using support::ChildProcess;
using enum clientcomm::DiagnosticCause;

using Records = std::vector<Record>;

std::string infoPath() { return support::hostBundlePath() + "/Contents/Info.plist"; }

std::string stringsPath() {
  return support::hostBundlePath() + "/Contents/Resources/en.lproj/InfoPlist.strings";
}

void startWithHelper() {
  support::embedHelper("1.0");
  startHost();
}

void setTips() {
  for (int i = 0; i < 3; ++i) TQHPHelperCommunicate::share().setTipsEnable(false);
}

void setDefault() {
  auto& defaults = clientcomm::UserDefaults::standardUserDefaults();
  defaults.setObject(clientcomm::PropertyListValue("value"), "Key");
  for (int i = 0; i < 2; ++i) EXPECT_FALSE(defaults.synchronize());
}

// A process that writes the file in place dies half-way.
void leaveUnfinishedWrite() {
  const std::string path = at("folder/file.plist");
  const std::string before = "{ Key = before; }";
  const std::string after = "{ Key = \"afterwards\"; }";
  support::writeFile(path, before);
  ChildProcess writer = ChildProcess::fork([&] {
    std::optional<clientcomm::RecoveryCopy> copy;
    if (!clientcomm::RecoveryCopy::make(path, before, after, copy).isOk()) return 1;
    support::writeFile(path, after.substr(0, 10));
    kill(getpid(), SIGKILL);
    return 1;
  });
  EXPECT_EQ(writer.wait(), 128 + SIGKILL);
}

// A process that holds the preferences until its end.
void holdPreferences() {
  fs::create_directories(at("config/Preferences"));
  static auto* const holder = new support::ChildProcess(support::ChildProcess::fork([] {
    const clientcomm::DirectoryLock lock(at("config/Preferences"), std::chrono::seconds(20));
    support::writeFile(at("held"), "");
    pause();
    return 0;
  }));
  static_cast<void>(holder);
  ASSERT_TRUE(support::waitUntil([] { return fs::exists(at("held")); }));
}

const Row kRows[] = {
    {"InfoIsMalformed", kPropertyListMalformed,
     [] {
       support::embedHelper("1.0");
       support::writeFile(infoPath(), "<plist><dict><key>PID");
     },
     startHost,
     [] {
       return Records{{kPropertyListMalformed, infoPath(), "", 0},
                      {kOwnIdentifierMissing, support::hostBundlePath(), "", 0},
                      {kInfoKeyMissing, "PID", "", 0},
                      {kInfoKeyMissing, "CFBundleVersion", "", 0},
                      {kInfoKeyMissing, "Helepr App name", "", 0},
                      {kInfoKeyMissing, "Helper loaction path", "", 0},
                      {kInfoKeyMissing, "Helper Bundle indentifiter", "", 0}};
     }},
    {"InfoCannotBeRead", kPropertyListUnreadable,
     [] {
       support::embedHelper("1.0");
       fs::remove(infoPath());
       fs::create_directory(infoPath());
     },
     startHost,
     [] {
       return Records{{kPropertyListUnreadable, infoPath(), "isRegularFile", EINVAL},
                      {kOwnIdentifierMissing, support::hostBundlePath(), "", 0},
                      {kInfoKeyMissing, "PID", "", 0},
                      {kInfoKeyMissing, "CFBundleVersion", "", 0},
                      {kInfoKeyMissing, "Helepr App name", "", 0},
                      {kInfoKeyMissing, "Helper loaction path", "", 0},
                      {kInfoKeyMissing, "Helper Bundle indentifiter", "", 0}};
     }},
    {"InfoIsGone", kSwitchFileMissing,
     [] {
       startWithHelper();
       fs::remove(infoPath());
     },
     setTips,
     [] {
       return Records{{kSwitchFileMissing, support::hostBundlePath(), "", 0},
                      {kStringTableMissing, support::hostBundlePath(), "", 0}};
     }},
    {"WriterHasDied", kUnfinishedWrite, [] { leaveUnfinishedWrite(); },
     [] { EXPECT_TRUE(clientcomm::dictionaryWithContentsOfFile(at("folder/file.plist"))); },
     [] {
       return Records{{kUnfinishedWrite, at("folder/file.plist"), "", 0}};
     }},
    {"CopyOfAWriteCannotBeRemoved", kRecoveryCopyLeft,
     [] {
       leaveUnfinishedWrite();
       static auto* const bound = new support::BoundByPermissions;
       static auto* const sealed = new support::SealedFolder(at("folder"));
       static_cast<void>(bound);
       static_cast<void>(sealed);
     },
     [] { EXPECT_TRUE(clientcomm::dictionaryWithContentsOfFile(at("folder/file.plist"))); },
     [] {
       Records expected = diagnosis::records();
       if (!expected.empty()) expected[0] = {kUnfinishedWrite, at("folder/file.plist"), "", 0};
       return expected;
     }},
    {"InfoCannotBeWritten", kSettingsNotWritten,
     [] {
       support::writeFile(stringsPath(), "\"TipsEnable\" = \"1\";");
       startWithHelper();
       chmod(infoPath().c_str(), 0444);
       static auto* const bound = new support::BoundByPermissions;
       static_cast<void>(bound);
     },
     setTips,
     [] {
       return Records{{kSettingsNotWritten, infoPath(), "faccessat", EACCES}};
     }},
    {"StringTableIsMissing", kStringTableMissing, startWithHelper, setTips,
     [] {
       return Records{{kStringTableMissing, support::hostBundlePath(), "", 0}};
     }},
    {"StringTableIsMalformed", kPropertyListMalformed,
     [] {
       startWithHelper();
       support::writeFile(stringsPath(), "\"TipsEnable\" = ");
     },
     setTips,
     [] {
       return Records{{kPropertyListMalformed, stringsPath(), "", 0},
                      {kStringTableMissing, stringsPath(), "", 0}};
     }},
    {"DataFolderIsRelative", kDataFolderRefused, startWithHelper,
     [] { TQHPHelperCommunicate::share().initDataCollectionPath("data"); },
     [] {
       return Records{{kDataFolderRefused, "data", "", 0}};
     }},
    {"DataFolderCannotBeMade", kDataFolderNotMade,
     [] {
       startWithHelper();
       support::writeFile(at("base"), "");
     },
     [] { TQHPHelperCommunicate::share().initDataCollectionPath(at("base")); },
     [] {
       return Records{{kDataFolderNotMade, at("base/Log/Data"), "mkdir", ENOTDIR}};
     }},
    {"DefaultsCannotBeWritten", kDefaultsNotWritten,
     [] {
       fs::remove_all(at("config"));
       support::writeFile(at("config"), "");
     },
     setDefault,
     [] {
       return Records{{kDefaultsNotWritten, at("config/Preferences"), "mkdir", ENOTDIR}};
     }},
    {"DefaultsAreHeld", kDefaultsNotWritten, holdPreferences, setDefault,
     [] {
       return Records{{kDefaultsNotWritten, at("config/Preferences"), "flock", ETIMEDOUT}};
     }},
    {"DefaultsAreDamaged", kDefaultsDamaged,
     [] { support::writeFile(support::preferencesPath("com.example.testhost"), "damaged"); },
     [] {
       auto& defaults = clientcomm::UserDefaults::standardUserDefaults();
       defaults.setObject(clientcomm::PropertyListValue("value"), "Key");
       EXPECT_TRUE(defaults.synchronize());
     },
     [] {
       const std::string path = support::preferencesPath("com.example.testhost");
       return Records{{kPropertyListMalformed, path, "", 0},
                      {kDefaultsDamaged, path + ".corrupt-1", "", 0}};
     }},
    {"EnvironmentNamesARelativeFolder", kEnvironmentIgnored,
     [] { setenv("XDG_CONFIG_HOME", "config", 1); },
     [] { clientcomm::UserDefaults::standardUserDefaults().objectForKey("Key"); },
     [] {
       return Records{{kEnvironmentIgnored, "XDG_CONFIG_HOME", "", 0}};
     }},
};

const diagnosis::Rows noted(kRows);

class SettingsFailure : public diagnosis::Table {};

TEST_P(SettingsFailure, IsReportedOnce) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Diagnosis, SettingsFailure, testing::ValuesIn(kRows), diagnosis::nameOf);

}  // namespace
