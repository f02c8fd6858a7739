// The diagnostic handler of the C interface.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "ClientComm/clientcomm.h"
#include "ClientComm/diagnostics.h"
#include "ClientComm/platform/reporter.h"

namespace {

using clientcomm::DiagnosticCause;

/// What the handler has been told.
struct Heard {
  std::vector<clientcomm_diagnostic> records;
  std::vector<std::string> texts;
  int destroyed = 0;
};

void hear(void* context, const clientcomm_diagnostic* diagnostic) {
  auto& heard = *static_cast<Heard*>(context);
  heard.records.push_back(*diagnostic);
  for (const clientcomm_text text : {diagnostic->call, diagnostic->subject, diagnostic->detail}) {
    EXPECT_EQ(text.bytes[text.length], '\0');
    heard.texts.emplace_back(text.bytes, text.length);
  }
}

void noteDestroyed(void* context) { ++static_cast<Heard*>(context)->destroyed; }

class CDiagnostics : public testing::Test {
 protected:
  CDiagnostics() {
    EXPECT_EQ(clientcomm_set_diagnostic_handler(hear, &heard_, noteDestroyed), CLIENTCOMM_OK);
  }
  ~CDiagnostics() override { clientcomm_set_diagnostic_handler(nullptr, nullptr, nullptr); }

  Heard heard_;
};

TEST_F(CDiagnostics, AHandlerIsToldWhatFailed) {
  clientcomm::report(DiagnosticCause::kHelperNotCopied, "/folder", "mkdir", ENOSPC);
  ASSERT_EQ(heard_.records.size(), 1U);
  EXPECT_EQ(heard_.records[0].cause, CLIENTCOMM_CAUSE_HELPER_NOT_COPIED);
  EXPECT_EQ(heard_.records[0].code_kind, CLIENTCOMM_CODE_ERRNO);
  EXPECT_EQ(heard_.records[0].code, ENOSPC);
  EXPECT_EQ(heard_.texts, (std::vector<std::string>{"mkdir", "/folder", ""}));
}

TEST_F(CDiagnostics, TextsEndInNULAlsoWhereTheLibraryHasAPartOfAString) {
  const std::string_view text = "key and more";
  clientcomm::report(DiagnosticCause::kInfoKeyMisspelt, text.substr(0, 3), text.substr(4, 3));
  EXPECT_EQ(heard_.texts, (std::vector<std::string>{"", "key", "and"}));
}

TEST_F(CDiagnostics, AReplacedHandlerIsDestroyedAndToldNoMore) {
  Heard other;
  EXPECT_EQ(clientcomm_set_diagnostic_handler(hear, &other, nullptr), CLIENTCOMM_OK);
  EXPECT_EQ(heard_.destroyed, 1);
  clientcomm::report(DiagnosticCause::kHelperNotCopied, "/folder");
  EXPECT_EQ(heard_.records.size(), 0U);
  EXPECT_EQ(other.records.size(), 1U);
}

TEST_F(CDiagnostics, EveryCauseIsInWordsAsInCpp) {
  for (const clientcomm::DiagnosticTexts& texts : clientcomm::kDiagnosticTexts) {
    const auto cause = static_cast<std::int32_t>(texts.cause);
    EXPECT_STREQ(clientcomm_cause_name(cause), texts.name);
    EXPECT_STREQ(clientcomm_cause_sentence(cause), texts.sentence);
    EXPECT_STREQ(clientcomm_cause_attempt(cause), texts.attempt);
  }
  EXPECT_STREQ(clientcomm_cause_name(399), "");
  EXPECT_STREQ(clientcomm_cause_sentence(399), "");
  EXPECT_STREQ(clientcomm_cause_attempt(1000), "");
}

TEST(CDiagnosticsCodes, AreThoseOfCpp) {
  using clientcomm::DiagnosticCodeKind;
  EXPECT_EQ(static_cast<int>(DiagnosticCodeKind::kNone), CLIENTCOMM_CODE_NONE);
  EXPECT_EQ(static_cast<int>(DiagnosticCodeKind::kErrno), CLIENTCOMM_CODE_ERRNO);
  EXPECT_EQ(static_cast<int>(DiagnosticCodeKind::kStatus), CLIENTCOMM_CODE_STATUS);
  EXPECT_EQ(static_cast<int>(DiagnosticCodeKind::kExitStatus), CLIENTCOMM_CODE_EXIT_STATUS);
  EXPECT_EQ(static_cast<int>(DiagnosticCodeKind::kSignal), CLIENTCOMM_CODE_SIGNAL);
  EXPECT_EQ(static_cast<int>(DiagnosticCodeKind::kProcess), CLIENTCOMM_CODE_PROCESS);
}

}  // namespace
