#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/workspace.h"
#include "tests/integration/diagnosis_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/permissions.h"
#include "tests/support/product_applications.h"
#include "tests/support/raw_packets.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// Why a helper that is there is not replaced or launched.

namespace {

namespace fs = std::filesystem;
using diagnosis::at;
using diagnosis::Record;
using diagnosis::Row;
using diagnosis::startHost;
using support::ChildProcess;
using support::embedHelper;
using support::helperIdentifier;
using support::installedHelperPath;
using enum clientcomm::DiagnosticCause;

using Records = std::vector<Record>;

constexpr char kEndingRole[] = "ending";
constexpr char kHangingRole[] = "hanging";

const support::Role endingRole(kEndingRole, [](const std::vector<std::string>&) { return 0; });

const support::Role hangingRole(kHangingRole, [](const std::vector<std::string>&) {
  for (;;) pause();
  return 0;
});

std::string embed(const char* role, const std::string& identifier) {
  return support::makeApplication(support::kHelperName, identifier, role, {},
                                  support::kResourceFolder);
}

void installHelper(const std::string& version) {
  fs::create_directories(at("install"));
  fs::rename(embedHelper(version, "other"), installedHelperPath());
}

std::string application() { return at("apps/App.app"); }

void makeApplication(const char* role) { support::makeApplication("App", "com.example.app", role); }

clientcomm::Status open(const std::string& path) {
  return clientcomm::Workspace::sharedWorkspace().openFile(path);
}

void openInVain(const std::string& path) { EXPECT_FALSE(open(path).isOk()); }

std::string removalMark() { return at("install/.Test Helper.app.removed"); }

std::string launchRecord() { return clientcomm::launchRecordName(application()); }

std::string infoOf(const std::string& bundle) { return bundle + "/Contents/Info.plist"; }

Record neverOpened() { return {kTargetNotRunning, helperIdentifier(), "connect", ENOENT}; }

// A process that holds the runtime folder until its end.
void holdRuntimeFolder() {
  clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
  static auto* const holder = new ChildProcess(ChildProcess::fork([] {
    const clientcomm::DirectoryLock lock(clientcomm::runtimeFolderPath(), std::chrono::seconds(20));
    support::writeFile(at("held"), "");
    pause();
    return 0;
  }));
  static_cast<void>(holder);
  ASSERT_TRUE(support::waitUntil([] { return fs::exists(at("held")); }));
}

// The application runs in an environment with another runtime folder.
void runElsewhere() {
  makeApplication(support::kEchoRole);
  const std::string ownFolder = std::getenv("XDG_RUNTIME_DIR");
  EXPECT_NE(clientcomm::runtimeFolderPath(), "");
  fs::create_directory(at("elsewhere"));
  fs::permissions(at("elsewhere"), fs::perms::owner_all);
  setenv("XDG_RUNTIME_DIR", at("elsewhere").c_str(), 1);
  static auto* const process = new ChildProcess(support::runApplication(application()));
  static_cast<void>(process);
  setenv("XDG_RUNTIME_DIR", ownFolder.c_str(), 1);
  const std::string endpoint =
      at("elsewhere/ClientComm/") + clientcomm::fileNameForIdentifier("com.example.app");
  ASSERT_TRUE(support::waitUntil([&] { return fs::exists(fs::symlink_status(endpoint)); }));
}

ChildProcess& oldHelper() {
  static auto* const process = [] {
    auto* const started = new ChildProcess(support::runApplication(installedHelperPath()));
    EXPECT_TRUE(support::waitUntilReachable(helperIdentifier()));
    return started;
  }();
  return *process;
}

const Row kRows[] = {
    {"HelperHasNoIdentifier", kHelperWithoutIdentifier, [] { embed(kHangingRole, ""); }, startHost,
     [] {
       return Records{neverOpened(), {kHelperWithoutIdentifier, installedHelperPath(), "", 0}};
     }},
    {"InstalledHelperHasNoVersion", kHelperWithoutVersion,
     [] {
       embedHelper("1.0");
       installHelper("1.0");
       auto info = clientcomm::dictionaryWithContentsOfFile(infoOf(installedHelperPath()));
       info->erase("CFBundleVersion");
       ASSERT_TRUE(clientcomm::writeDictionaryToFile(*info, infoOf(installedHelperPath())));
     },
     startHost,
     [] {
       return Records{{kHelperWithoutVersion, installedHelperPath(), "", 0}};
     }},
    {"InstallFolderBelongsToAnotherUser", kInstallFolderNotOwned,
     [] {
       embedHelper("1.0");
       if (geteuid() != 0) return;
       fs::create_directory(at("install"));
       ASSERT_EQ(chown(at("install").c_str(), 65534, 65534), 0);
     },
     [] {
       if (geteuid() == 0) startHost();
     },
     [] {
       if (geteuid() != 0) return Records{};
       return Records{{kInstallFolderNotOwned, at("install"), "", 0}};
     }},
    {"MarkOfARemovalCannotBeRemoved", kLeftoverNotRemoved,
     [] {
       embedHelper("1.0");
       installHelper("1.0");
       support::writeFile(removalMark(), "");
       static auto* const bound = new support::BoundByPermissions;
       static auto* const sealed = new support::SealedFolder(at("install"));
       static_cast<void>(bound);
       static_cast<void>(sealed);
     },
     startHost,
     [] {
       return Records{{kLeftoverNotRemoved, removalMark(), "unlinkat", EACCES}};
     }},
    {"WorkingFolderIsGone", kLaunchFailed, nullptr,
     [] {
       fs::create_directory(at("gone"));
       fs::current_path(at("gone"));
       fs::remove(at("gone"));
       openInVain("App.app");
     },
     [] {
       return Records{{kLaunchFailed, "App.app", "getcwd", ENOENT}};
     }},
    {"LaunchesAreLocked", kLaunchLocked,
     [] {
       makeApplication(kEndingRole);
       holdRuntimeFolder();
     },
     [] { openInVain(application()); },
     [] {
       Records expected{{kLaunchLocked, "", "flock", ETIMEDOUT}};
       // The path holds the number of a descriptor.
       if (!diagnosis::records().empty()) expected[0].subject = diagnosis::records()[0].subject;
       return expected;
     }},
    {"LaunchRecordHasAFolderInItsPlace", kLaunchNotRecorded,
     [] {
       makeApplication(kEndingRole);
       clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
       fs::create_directories(clientcomm::runtimeFolderPath() + "/" + launchRecord() + "/full");
     },
     [] { EXPECT_TRUE(open(application()).isOk()); },
     [] {
       return Records{{kLaunchNotRecorded, launchRecord(), "renameat", EISDIR}};
     }},
    {"ApplicationRunsInAnotherEnvironment", kHelperOutOfReach, runElsewhere,
     [] { openInVain(application()); },
     [] {
       return Records{
           {kHelperOutOfReach, support::executableOf(application()), "presenceOf", EEXIST}};
     }},
    {"ApplicationHangs", kHelperHangs, [] { makeApplication(kHangingRole); },
     [] {
       EXPECT_TRUE(support::waitUntil([] {
         std::ignore = open(application()).isOk();
         return diagnosis::hasRecord(kHelperHangs);
       }));
     },
     [] {
       return Records{{kHelperHangs, support::executableOf(application()), "launchAdvice", EAGAIN}};
     }},
    {"OldHelperDoesNotTakeTheExitCommand", kOldHelperNotTold,
     [] {
       embedHelper("2.0");
       installHelper("1.0");
       EXPECT_NE(oldHelper().pid(), 0);
     },
     [] {
       oldHelper().signal(SIGSTOP);
       const auto queue = support::raw::fillQueue(helperIdentifier());
       TQHPHelperCommunicate::shareAsync([](clientcomm::OSErr) {});
       EXPECT_TRUE(support::runLoopUntil([] { return diagnosis::hasRecord(kOldHelperNotTold); }));
       oldHelper().signal(SIGCONT);
     },
     [] {
       return Records{
           {kOldHelperNotTold, installedHelperPath(), "exitHelper", clientcomm::errAETimeout}};
     }},
};

const diagnosis::Rows noted(kRows);

class LaunchFailure : public diagnosis::Table {};

TEST_P(LaunchFailure, IsReportedOnce) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Diagnosis, LaunchFailure, testing::ValuesIn(kRows), diagnosis::nameOf);

}  // namespace
