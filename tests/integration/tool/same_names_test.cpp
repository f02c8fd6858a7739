#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/diagnostics.h"
#include "tests/integration/tool/check_fixture.h"

// For the same mistake in a real host, `clientcomm check` and the diagnostic handler of that host
// name the same cause.

namespace {

using clientcomm::DiagnosticCause;
using enum clientcomm::DiagnosticCause;

/// A row of the tables, and what the host's handler has to hear.
struct Pair {
  const char* row;
  DiagnosticCause cause;
};

void PrintTo(const Pair& pair, std::ostream* stream) { *stream << pair.row; }

constexpr Pair kPairs[] = {
    {"HostIsNoBundle", kHostWithoutBundle},
    {"InfoIsMalformed", kPropertyListMalformed},
    {"InfoOfTheHelperIsMalformed", kPropertyListMalformed},
    {"OwnIdentifierIsMissing", kOwnIdentifierMissing},
    {"IdentifierIsMissing", kInfoKeyMissing},
    {"NameIsMissing", kInfoKeyMissing},
    {"FolderIsMissing", kInfoKeyMissing},
    {"ProductIDIsMissing", kInfoKeyMissing},
    {"VersionIsMissing", kInfoKeyMissing},
    {"IdentifierIsMisspelt", kInfoKeyMisspelt},
    {"NameIsMisspelt", kInfoKeyMisspelt},
    {"FolderIsMisspelt", kInfoKeyMisspelt},
    {"BlanksAreMissing", kInfoKeyMisspelt},
    {"CaseDiffers", kInfoKeyMisspelt},
    {"HelperIsNotEmbedded", kHelperNotEmbedded},
    {"NameHasItsExtension", kHelperNotEmbedded},
    {"IdentifierDiffers", kHelperIdentifierDiffers},
    {"HelperHasNoIdentifier", kHelperWithoutIdentifier},
    {"ExecutableIsMissing", kExecutableMissing},
    {"ExecutableHasAnotherName", kExecutableMissing},
    {"ExecutableLeadsElsewhere", kExecutableMissing},
    {"ExecutableIsNoProgram", kExecutableNotRun},
    {"InstallFolderIsAFile", kInstallFolderNotMade},
    {"InstallFolderIsOfAnotherUser", kInstallFolderNotOwned},
    {"InstallFolderIsLocked", kInstallFolderLocked},
    {"InstalledHelperIsNewer", kInstalledHelperNewer},
    {"VariableIsRelative", kEnvironmentIgnored},
    {"RuntimeFolderIsAFile", kRuntimeFolderUnusable},
    {"RuntimeFolderIsALink", kRuntimeFolderUnusable},
    {"RuntimeFolderIsOfAnotherUser", kRuntimeFolderUnusable},
    {"RuntimeFolderIsLocked", kLaunchLocked},
    {"ServerIsClosed", kServerClosed},
    {"HelperTakesCallsElsewhere", kHelperOutOfReach},
};

class SameCause : public testing::TestWithParam<Pair> {};

TEST_P(SameCause, IsNamedByTheHostAndByTheTool) {
  const check_test::Row* const row = check_test::rowNamed(GetParam().row);
  ASSERT_NE(row, nullptr);
  ASSERT_EQ(row->before, nullptr) << "the host runs in this process";
  check_test::prepareHost(*row);
  if (IsSkipped()) return;
  EXPECT_EQ(check_test::findingsOfHost(*row), row->findings);
  std::vector<DiagnosticCause> causes;
  clientcomm::setDiagnosticHandler(
      [&](const clientcomm::Diagnostic& diagnostic) { causes.push_back(diagnostic.cause); });
  TQHPHelperCommunicate::share().autoRestartHelper();
  clientcomm::setDiagnosticHandler(nullptr);
  EXPECT_GE(std::count(causes.begin(), causes.end(), GetParam().cause), 1)
      << testing::PrintToString(causes);
}

INSTANTIATE_TEST_SUITE_P(Mistake, SameCause, testing::ValuesIn(kPairs),
                         [](const auto& pair) { return std::string(pair.param.row); });

}  // namespace
