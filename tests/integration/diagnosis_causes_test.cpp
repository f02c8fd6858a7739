#include <gtest/gtest.h>

#include <set>

#include "ClientComm/platform/diagnostic.h"
#include "tests/integration/diagnosis_fixture.h"

// Which causes the tables show.

namespace {

using enum clientcomm::DiagnosticCause;

// No host gets into these at will.
const std::set<clientcomm::DiagnosticCause> kNotShown = {
    kHostWithoutBundle,     // the test is a bundle
    kOldProcessesUnknown,   // of a system that withholds /proc
    kProcessesUnreadable,   // the same
    kLaunchOutcomeUnknown,  // of a launch that is killed half-way
    kVersionUnsupported,    // there is one version
    kOwnProgramUnreadable,  // of a system that withholds /proc
    kCallerUnknown,         // a moment between two looks
};

TEST(Diagnosis, EveryCauseHasARow) {
  for (const clientcomm::DiagnosticTexts& texts : clientcomm::kDiagnosticTexts) {
    const bool isShown = diagnosis::shownCauses().count(texts.cause) != 0;
    EXPECT_NE(isShown, kNotShown.count(texts.cause) != 0) << texts.name;
  }
}

}  // namespace
