#include "ClientComm/diagnostics.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/internal/guard.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/status.h"
#include "tests/support/allocation_count.h"
#include "tests/support/memory/memory_system.h"

namespace {

using clientcomm::Diagnostic;
using clientcomm::DiagnosticCause;
using clientcomm::DiagnosticCodeKind;
using clientcomm::KeptReports;
using clientcomm::report;
using clientcomm::setDiagnosticHandler;
using clientcomm::Status;

class DiagnosticsTest : public testing::Test {
 protected:
  ~DiagnosticsTest() override { setDiagnosticHandler(nullptr); }

  void collect() {
    setDiagnosticHandler([this](const Diagnostic& diagnostic) {
      subjects_.emplace_back(diagnostic.subject);
      lines_.push_back(clientcomm::descriptionOf(diagnostic));
      thread_ = std::this_thread::get_id();
    });
  }

  static void fail(const std::string& path = "/folder") {
    report(DiagnosticCause::kHelperNotCopied, path, "mkdir", ENOSPC);
  }

  std::vector<std::string> subjects_;
  std::vector<std::string> lines_;
  std::thread::id thread_;
};

TEST_F(DiagnosticsTest, AHandlerIsToldWhatFailed) {
  Diagnostic seen{};
  std::string subject;
  setDiagnosticHandler([&](const Diagnostic& diagnostic) {
    seen = diagnostic;
    subject = diagnostic.subject;
  });
  fail();
  EXPECT_EQ(seen.cause, DiagnosticCause::kHelperNotCopied);
  EXPECT_STREQ(seen.name(), "helper-not-copied");
  EXPECT_STREQ(seen.attempt(), "install the helper");
  EXPECT_EQ(subject, "/folder");
  EXPECT_STREQ(seen.call, "mkdir");
  EXPECT_EQ(seen.codeKind, DiagnosticCodeKind::kErrno);
  EXPECT_EQ(seen.code, ENOSPC);
  EXPECT_STREQ(seen.sentence(), "The helper cannot be copied to the install folder.");
}

TEST_F(DiagnosticsTest, ADescriptionHoldsEverythingOnOneLine) {
  collect();
  fail();
  report(DiagnosticCause::kInfoKeyMisspelt, "Helper name", "Helepr App name");
  clientcomm::reportStatus(DiagnosticCause::kCallRefused, "com.example", "", -108);
  report(DiagnosticCause::kHelperKilled, "/App", "waitpid", 11, DiagnosticCodeKind::kSignal);
  clientcomm::reportProcess(DiagnosticCause::kCallerSilent, 7);
  EXPECT_EQ(lines_,
            (std::vector<std::string>{
                "install the helper: /folder: mkdir: No space left on device (errno 28): The "
                "helper cannot be copied to the install folder. (helper-not-copied)",
                "read the host's bundle: Helper name, Helepr App name: This key is read under "
                "another spelling. (info-key-misspelt)",
                "send a call: com.example: status -108: The application has refused the call. "
                "(call-refused)",
                "launch the helper: /App: waitpid: signal 11: The helper was killed by a signal "
                "soon after its launch. (helper-killed)",
                "take a call: process 7: The caller has connected and sent nothing; the "
                "connection is closed. (caller-silent)"}));
}

TEST_F(DiagnosticsTest, EveryCauseHasANameAndASentenceOfItsOwn) {
  std::set<int> numbers;
  std::set<std::string> names;
  std::set<std::string> sentences;
  for (const clientcomm::DiagnosticTexts& texts : clientcomm::kDiagnosticTexts) {
    const std::string sentence = texts.sentence;
    const int number = static_cast<int>(texts.cause);
    EXPECT_TRUE(numbers.insert(number).second) << number;
    EXPECT_TRUE(names.insert(texts.name).second) << texts.name;
    EXPECT_TRUE(sentences.insert(sentence).second) << sentence;
    EXPECT_TRUE(sentence.ends_with('.')) << sentence;
    EXPECT_STRNE(texts.attempt, "") << texts.name;
    EXPECT_STREQ(clientcomm::textsOf(texts.cause).name, texts.name);
  }
  EXPECT_GE(numbers.size(), 80U);
}

TEST_F(DiagnosticsTest, ACauseOfALaterVersionHasItsNumberOnly) {
  const auto texts = clientcomm::textsOf(static_cast<DiagnosticCause>(399));
  EXPECT_STREQ(texts.attempt, "launch the helper");
  EXPECT_STREQ(texts.name, "");
  EXPECT_STREQ(texts.sentence, "");
}

TEST_F(DiagnosticsTest, AFailureThatRecursIsReportedOnce) {
  collect();
  for (int i = 0; i < 100; ++i) {
    fail();
    support::MemorySystem::current().clock.advance(std::chrono::seconds(5));
  }
  EXPECT_EQ(subjects_.size(), 1U);
  support::MemorySystem::current().clock.advance(
      std::chrono::seconds(clientcomm::kDiagnosticPause));
  fail();
  EXPECT_EQ(subjects_.size(), 2U) << "after a pause it is news";
}

TEST_F(DiagnosticsTest, OtherSubjectsAndCodesAreOtherFailures) {
  collect();
  fail("/one");
  fail("/two");
  report(DiagnosticCause::kHelperNotCopied, "/two", "mkdir", EROFS);
  report(DiagnosticCause::kHelperNotCopied, "/two", "open", EROFS);
  EXPECT_EQ(subjects_, (std::vector<std::string>{"/one", "/two", "/two", "/two"}));
}

TEST_F(DiagnosticsTest, AHandlerThatIsSetAnewIsToldEverythingAnew) {
  collect();
  fail();
  collect();
  fail();
  EXPECT_EQ(subjects_.size(), 2U);
}

TEST_F(DiagnosticsTest, WithoutAHandlerNothingIsAllocated) {
  const std::string path = "/a path that is longer than the buffer in a string object";
  const auto before = support::allocationCount();
  fail(path);
  EXPECT_EQ(support::allocationCount(), before);
  collect();
  setDiagnosticHandler(nullptr);
  fail();
  EXPECT_TRUE(subjects_.empty());
}

TEST_F(DiagnosticsTest, AnExceptionOfTheHandlerEndsInTheLibrary) {
  int calls = 0;
  setDiagnosticHandler([&](const Diagnostic&) {
    ++calls;
    throw std::runtime_error("host");
  });
  fail("/one");
  fail("/two");
  EXPECT_EQ(calls, 2);
}

TEST_F(DiagnosticsTest, AHandlerIsDestroyedOnceItHasBeenReplaced) {
  const auto held = std::make_shared<int>();
  setDiagnosticHandler([held](const Diagnostic&) {});
  fail();
  EXPECT_EQ(held.use_count(), 2);
  setDiagnosticHandler(nullptr);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(DiagnosticsTest, AFailureInsideTheHandlerIsNotReported) {
  setDiagnosticHandler([this](const Diagnostic& diagnostic) {
    subjects_.emplace_back(diagnostic.subject);
    fail("/inner");
  });
  fail("/outer");
  EXPECT_EQ(subjects_, std::vector<std::string>{"/outer"});
}

TEST_F(DiagnosticsTest, AHandlerMayReplaceItself) {
  const std::string path = "a text that the handler holds and that has to outlive its removal";
  setDiagnosticHandler([this, path](const Diagnostic&) {
    setDiagnosticHandler(nullptr);
    subjects_.push_back(path);
  });
  fail("/one");
  fail("/two");
  EXPECT_EQ(subjects_, std::vector<std::string>{path});
}

TEST_F(DiagnosticsTest, ErrnoIsKept) {
  setDiagnosticHandler([](const Diagnostic&) { errno = EIO; });
  errno = ENOENT;
  fail();
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(DiagnosticsTest, AStatusThatIsDiscardedIsReported) {
  collect();
  Status().report(DiagnosticCause::kDefaultsNotWritten);
  Status::ofFile(EROFS, "open", "/file").report(DiagnosticCause::kDefaultsNotWritten);
  EXPECT_EQ(lines_,
            std::vector<std::string>{
                "write user defaults: /file: open: Read-only file system (errno 30): The "
                "user defaults cannot be written; they stay pending. (defaults-not-written)"});
}

TEST_F(DiagnosticsTest, AnExceptionIsReportedByItsText) {
  collect();
  const int result = clientcomm::guarded(1, []() -> int { throw std::runtime_error("host"); });
  EXPECT_EQ(result, 1);
  clientcomm::guarded([] { throw 5; });
  EXPECT_EQ(subjects_, (std::vector<std::string>{"host", ""}));
}

TEST_F(DiagnosticsTest, KeptReportsComeOnTheThreadThatAsksForThem) {
  collect();
  KeptReports reports;
  std::thread([&] {
    const KeptReports::Scope scope(reports);
    fail(std::string("/a path of the thread, which is gone by then"));
  }).join();
  EXPECT_TRUE(subjects_.empty());
  reports.deliver();
  EXPECT_EQ(subjects_, std::vector<std::string>{"/a path of the thread, which is gone by then"});
  EXPECT_EQ(thread_, std::this_thread::get_id());
  fail("/here");
  EXPECT_EQ(subjects_.size(), 2U) << "the scope has ended";
}

TEST_F(DiagnosticsTest, TheHandlerMayBeSetWhileOthersReport) {
  std::atomic<bool> isOver = false;
  std::atomic<int> calls = 0;
  std::thread reporting([&] {
    for (int i = 0; !isOver; ++i) fail("/" + std::to_string(i));
  });
  for (int i = 0; i < 1000 || calls == 0; ++i) {
    setDiagnosticHandler([&calls](const Diagnostic&) { ++calls; });
    if (calls != 0) setDiagnosticHandler(nullptr);
  }
  isOver = true;
  reporting.join();
}

}  // namespace
