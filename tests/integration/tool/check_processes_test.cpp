#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPProcessList.h"
#include "tests/integration/tool/check_fixture.h"
#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_host.h"
#include "tests/support/test_sandbox.h"

// What `clientcomm check` says of processes, and of launches that came to nothing.

namespace {

namespace fs = std::filesystem;
using check_test::at;
using check_test::installHelper;
using check_test::Row;
using support::ChildProcess;
using support::helperIdentifier;
using support::installedHelperPath;

constexpr char kEndingRole[] = "ending-helper";
const support::Role endingRole(kEndingRole, [](const std::vector<std::string>&) { return 3; });

constexpr char kHangingRole[] = "hanging-helper";
const support::Role hangingRole(kHangingRole, [](const std::vector<std::string>&) {
  for (;;) pause();
  return 0;
});

// Until the test ends.
void keepRunning(const std::string& application) {
  static auto* const process = new ChildProcess(support::runApplication(application));
  static_cast<void>(process);
}

void launchInVain(int times) {
  for (int i = 0; i < times; ++i) {
    ASSERT_TRUE(
        support::waitUntil([] { return support::processesOf(installedHelperPath()).empty(); }));
    TQHPHelperCommunicate::share().launchHelepr();
  }
}

const Row kRows[] = {
    {"HelperRuns",
     [] {
       keepRunning(installHelper("1.0"));
       ASSERT_TRUE(support::waitUntilReachable(helperIdentifier()));
     },
     {},
     0},
    {"AnotherCopyTakesTheCalls",
     [] {
       keepRunning(support::embedHelper("1.0", "other"));
       ASSERT_TRUE(support::waitUntilReachable(helperIdentifier()));
     },
     {"endpoint-taken"},
     0},
    {"OldHelperRunsOn",
     [] {
       keepRunning(installHelper("0.9"));
       ASSERT_TRUE(support::waitUntilReachable(helperIdentifier()));
       fs::remove_all(installedHelperPath());
     },
     {"old-helper-runs"},
     0},
    {"HelperTakesCallsElsewhere",
     [] {
       const std::string own = std::getenv("XDG_RUNTIME_DIR");
       fs::create_directory(at("elsewhere"));
       fs::permissions(at("elsewhere"), fs::perms::owner_all);
       setenv("XDG_RUNTIME_DIR", at("elsewhere").c_str(), 1);
       keepRunning(installHelper("1.0"));
       ASSERT_TRUE(support::waitUntil([] { return support::countInJournal("ready") == 1; }));
       setenv("XDG_RUNTIME_DIR", own.c_str(), 1);
     },
     {"helper-out-of-reach"}},
    {"HelperEndsAgainAndAgain",
     [] {
       support::makeApplication(support::kHelperName, helperIdentifier(), kEndingRole, {},
                                support::kResourceFolder);
       launchInVain(4);
       ASSERT_TRUE(
           support::waitUntil([] { return support::processesOf(installedHelperPath()).empty(); }));
     },
     {"launch-put-off"}},
    {"HelperHangs",
     [] {
       support::makeApplication(support::kHelperName, helperIdentifier(), kHangingRole, {},
                                support::kResourceFolder);
       launchInVain(1);
       // From then on it no longer counts as starting.
       ASSERT_TRUE(support::waitUntil([] {
         return !TQHPProcessList::share().applicationIsRunning(helperIdentifier(),
                                                               installedHelperPath());
       }));
     },
     {"helper-hangs"}},
    {"ProcessesCannotBeRead",
     [] {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
       GTEST_SKIP() << "the sanitizer reads /proc itself";
#endif
       if (!support::ownMounts()) GTEST_SKIP() << "no mounts of our own";
     },
     {"processes-unreadable"},
     0,
     [] {
       support::ownMounts();  // not for this process
       mount("tmpfs", "/proc", "tmpfs", 0, "mode=000");
       tool_test::loseRightsOfRoot();
     }},
};

const check_test::Rows kRegistered(kRows);

using CheckProcesses = check_test::CheckTable;

TEST_P(CheckProcesses, AreFoundAndNamed) { runRow(); }

INSTANTIATE_TEST_SUITE_P(Mistake, CheckProcesses, testing::ValuesIn(kRows), check_test::nameOf);

}  // namespace
