#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/async.h"
#include "ClientComm/platform/file_lock.h"
#include "tests/integration/diagnosis_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/permissions.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// Why a helper does not start, as the host's handler hears of it.

namespace {

namespace fs = std::filesystem;
using clientcomm::DiagnosticCause;
using diagnosis::at;
using diagnosis::Record;
using diagnosis::Row;
using diagnosis::startHost;
using diagnosis::writeInfo;
using support::embedHelper;
using support::helperIdentifier;
using support::installedHelperPath;
using enum clientcomm::DiagnosticCause;

using Records = std::vector<Record>;

constexpr char kName[] = "Helepr App name";
constexpr char kFolder[] = "Helper loaction path";
constexpr char kIdentifier[] = "Helper Bundle indentifiter";

constexpr char kExitingRole[] = "exiting";
constexpr char kKilledRole[] = "killed";

const support::Role exitingRole(kExitingRole, [](const std::vector<std::string>&) { return 3; });

const support::Role killedRole(kKilledRole, [](const std::vector<std::string>&) {
  std::signal(SIGTERM, SIG_DFL);
  kill(getpid(), SIGTERM);
  for (;;) pause();
  return 0;
});

std::string embed(const char* role, const std::string& identifier = helperIdentifier()) {
  return support::makeApplication(support::kHelperName, identifier, role, {},
                                  support::kResourceFolder);
}

std::string installedExecutable() { return support::executableOf(installedHelperPath()); }

void installHelper(const std::string& version) {
  fs::create_directories(at("install"));
  fs::rename(embedHelper(version, "other"), installedHelperPath());
}

Record neverOpened() { return {kTargetNotRunning, helperIdentifier(), "connect", ENOENT}; }

Row missingKey(const char* name, const char* key) {
  return {name, kInfoKeyMissing,
          [key] {
            embedHelper("1.0");
            writeInfo({key});
          },
          startHost,
          [key] {
            return Records{{kInfoKeyMissing, key, "", 0}};
          }};
}

Row misspeltKey(const char* name, const char* key, const char* found) {
  return {name, kInfoKeyMisspelt,
          [key, found] {
            embedHelper("1.0");
            writeInfo({key}, {{found, support::defaultHostInfo().at(key)}});
          },
          startHost,
          [key, found] {
            return Records{{kInfoKeyMisspelt, found, "", 0, key}};
          }};
}

// Until the process ends.
void sealInstallFolder() {
  static auto* const bound = new support::BoundByPermissions;
  static auto* const sealed = new support::SealedFolder(at("install"));
  static_cast<void>(bound);
  static_cast<void>(sealed);
}

// A process that holds the install folder until its end.
void holdInstallFolder() {
  static auto* const holder = new support::ChildProcess(support::ChildProcess::fork([] {
    const clientcomm::DirectoryLock lock(at("install"), std::chrono::seconds(20));
    support::writeFile(at("held"), "");
    pause();
    return 0;
  }));
  static_cast<void>(holder);
  ASSERT_TRUE(support::waitUntil([] { return fs::exists(at("held")); }));
}

void runLoopUntilRecord(DiagnosticCause cause) {
  EXPECT_TRUE(support::runLoopUntil([cause] { return diagnosis::hasRecord(cause); }));
}

const Row kRows[] = {
    missingKey("NameOfTheHelperIsMissing", kName),
    missingKey("InstallFolderIsMissing", kFolder),
    missingKey("ProductIDIsMissing", "PID"),
    misspeltKey("NameOfTheHelperIsMisspelt", kName, "Helepr App Nmae"),
    misspeltKey("InstallFolderIsMisspelt", kFolder, "Helper lokation path"),
    {"IdentifierIsMisspelt", kInfoKeyMisspelt,
     [] {
       embedHelper("1.0");
       writeInfo({kIdentifier}, {{"Helper Bundle identifier", helperIdentifier()}});
     },
     startHost,
     [] {
       return Records{{kInfoKeyMisspelt, "Helper Bundle identifier", "", 0, kIdentifier},
                      {kTargetMissing, "", "checkEvent", -600}};
     }},
    {"HelperIsNotEmbedded", kHelperNotEmbedded, [] { support::makeHelper("elsewhere"); }, startHost,
     [] {
       return Records{{kHelperNotEmbedded, "Test Helper", "", 0, support::hostBundlePath()}};
     }},
    {"InstallFolderCannotBeMade", kInstallFolderNotMade,
     [] {
       embedHelper("1.0");
       fs::remove(at("install"));
       support::writeFile(at("install"), "a file");
     },
     startHost,
     [] {
       return Records{{kInstallFolderNotMade, at("install"), "open", ENOTDIR}};
     }},
    {"InstallFolderIsHeld", kInstallFolderLocked,
     [] {
       embedHelper("1.0");
       installHelper("1.0");
       holdInstallFolder();
     },
     startHost,
     [] {
       return Records{{kInstallFolderLocked, at("install"), "flock", ETIMEDOUT}};
     }},
    {"HelperCannotBeCopied", kHelperNotCopied,
     [] {
       embedHelper("1.0");
       sealInstallFolder();
     },
     startHost,
     [] {
       return Records{{kHelperNotCopied, installedHelperPath(), "mkdirat", EACCES}};
     }},
    {"OldHelperCannotBeMovedAside", kHelperNotReplaced,
     [] {
       embedHelper("2.0");
       installHelper("1.0");
       sealInstallFolder();
     },
     startHost,
     [] {
       EXPECT_EQ(diagnosis::records().size(), 1U);
       Records expected{{kHelperNotReplaced, "", "mkdirat", EACCES}};
       // The path holds the number of a process.
       if (!diagnosis::records().empty()) expected[0].subject = diagnosis::records()[0].subject;
       return expected;
     }},
    {"InstalledHelperIsNewer", kInstalledHelperNewer,
     [] {
       embedHelper("1.0");
       installHelper("2.0");
     },
     startHost,
     [] {
       return Records{{kInstalledHelperNewer, installedHelperPath(), "", 0, "2.0"}};
     }},
    {"ExecutableIsMissing", kExecutableMissing,
     [] { fs::remove(support::executableOf(embedHelper("1.0"))); }, startHost,
     [] {
       return Records{{kExecutableMissing, installedHelperPath(), "executablePath", ENOENT}};
     }},
    {"ExecutableIsNoProgram", kExecutableNotRun,
     [] {
       const std::string program = support::executableOf(embedHelper("1.0"));
       fs::remove(program);
       support::writeFile(program, "no program");
       chmod(program.c_str(), 0755);
     },
     startHost,
     [] {
       return Records{{kExecutableNotRun, installedExecutable(), "execve", ENOEXEC}};
     }},
    {"HelperExitsAtOnce", kHelperExited, [] { embed(kExitingRole); },
     [] {
       startHost();
       runLoopUntilRecord(kHelperExited);
     },
     [] {
       return Records{neverOpened(), {kHelperExited, installedExecutable(), "waitpid", 3}};
     }},
    {"HelperIsKilledAtOnce", kHelperKilled, [] { embed(kKilledRole); },
     [] {
       startHost();
       runLoopUntilRecord(kHelperKilled);
     },
     [] {
       return Records{neverOpened(), {kHelperKilled, installedExecutable(), "waitpid", SIGTERM}};
     }},
    {"LaunchIsPutOff", kLaunchPutOff, [] { embed(kExitingRole); },
     [] {
       startHost();
       for (int step = 0; step < 3; ++step) {
         ASSERT_TRUE(support::waitUntil(
             [] { return support::processesOf(installedHelperPath()).empty(); }));
         TQHPHelperCommunicate::share().launchHelepr();
       }
     },
     [] {
       return Records{neverOpened(),
                      {kLaunchPutOff, installedExecutable(), "launchAdvice", EAGAIN}};
     }},
    {"IdentifierOfTheHelperDiffers", kHelperIdentifierDiffers,
     [] { embed(support::kEchoRole, "com.example.other"); }, startHost,
     [] {
       return Records{neverOpened(),
                      {kHelperIdentifierDiffers, "com.example.other", "", 0, helperIdentifier()}};
     }},
    {"ServerIsClosed", kServerClosed,
     [] {
       embedHelper("1.0");
       support::writeHelperPreferences({{"TQHPServerClosed", true}});
     },
     [] {
       startHost();
       for (int i = 0; i < 3; ++i) {
         EXPECT_EQ(TQHPHelperCommunicate::share().autoRestartHelper(), 10);
       }
     },
     [] {
       return Records{{kServerClosed, helperIdentifier(), "TQHPServerClosed", 10}};
     }},
};

const diagnosis::Rows noted(kRows);

class StartFailure : public diagnosis::Table {};

TEST_P(StartFailure, IsReportedOnce) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Diagnosis, StartFailure, testing::ValuesIn(kRows), diagnosis::nameOf);

TEST(Diagnosis, AStartThatSucceedsReportsNothing) {
  embedHelper("1.0");
  Records seen;
  clientcomm::setDiagnosticHandler([&](const clientcomm::Diagnostic& diagnostic) {
    seen.push_back(
        {diagnostic.cause, std::string(diagnostic.subject), diagnostic.call, diagnostic.code});
  });
  EXPECT_EQ(TQHPHelperCommunicate::share().autoRestartHelper(), 0);
  EXPECT_TRUE(TQHPHelperCommunicate::share().clientID());
  EXPECT_EQ(seen, Records());
}

TEST(Diagnosis, AnObservedHelperBecomesAnOrphanAfterTheLaunchLimit) {
  embedHelper("1.0");
  clientcomm::setDiagnosticHandler([](const clientcomm::Diagnostic&) {});
  startHost();
  const pid_t helper = support::helperPid();
  ASSERT_NE(helper, 0);
  const auto parent = [helper] {
    const std::string stat = support::readFile("/proc/" + std::to_string(helper) + "/stat");
    return std::stoi(stat.substr(stat.rfind(')') + 4));
  };
  const pid_t observer = parent();
  EXPECT_TRUE(support::waitUntil([&] { return parent() != observer; }));
  EXPECT_EQ(support::helperPid(), helper) << "it lives on";
}

TEST(Diagnosis, ABackgroundStartReportsFailedFileWorkOnTheHostsThread) {
  embedHelper("1.0");
  sealInstallFolder();
  const auto own = std::this_thread::get_id();
  int count = 0;
  clientcomm::setDiagnosticHandler([&](const clientcomm::Diagnostic& diagnostic) {
    EXPECT_EQ(diagnostic.cause, kHelperNotCopied);
    EXPECT_EQ(std::this_thread::get_id(), own);
    ++count;
  });
  bool isOver = false;
  TQHPHelperCommunicate::shareAsync([&](clientcomm::OSErr) { isOver = true; });
  EXPECT_TRUE(support::runLoopUntil([&] { return isOver; }));
  EXPECT_EQ(count, 1);
  clientcomm::setDiagnosticHandler(nullptr);
}

}  // namespace
