// The tour through the sample applications.

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;

// Whatever the tour starts and leaves becomes a child of the supervisor of this test.
bool hasProcessesLeft(const std::string& folder) {
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::error_code error;
    const std::string executable = fs::read_symlink(entry.path() / "exe", error).string();
    if (!error && executable.find(folder) != std::string::npos) return true;
  }
  return false;
}

class TourTest : public testing::Test {
 protected:
  // The tour makes its private folder in here.
  void SetUp() override {
    fs::create_directory(temporary_);
    setenv("TMPDIR", temporary_.c_str(), 1);
  }

  void expectNothingLeft() const {
    EXPECT_TRUE(fs::is_empty(temporary_));
    EXPECT_FALSE(hasProcessesLeft(temporary_));
  }

  const std::string temporary_ = support::sandbox() + "/tmp";
};

TEST_F(TourTest, EveryStepHoldsAndNothingIsLeftBehind) {
  auto tour = support::ChildProcess::spawn({TOUR_PROGRAM, "--once"});
  const std::string output = tour.readAll();
  EXPECT_EQ(tour.wait(), 0) << output;
  EXPECT_NE(output.find("all of them succeeded"), std::string::npos) << output;
  expectNothingLeft();
}

// A terminal of its own for a command of the shell; its input can press keys.
support::ChildProcess spawnInTerminal(const std::string& command) {
  setenv("TERM", "xterm", 1);
  unsetenv("NO_COLOR");
  return support::ChildProcess::spawn({"/usr/bin/script", "-qec", command, "/dev/null"});
}

// No file that the tour writes may be longer than a few KiB, so its first step fails.
const char kTourThatFails[] = "trap '' XFSZ; ulimit -f 8; exec " TOUR_PROGRAM " --once";

TEST_F(TourTest, TheSummaryNamesTheSectionThatFailed) {
  auto tour = support::ChildProcess::spawn({"/bin/sh", "-c", kTourThatFails});
  const std::string output = tour.readAll();
  EXPECT_EQ(tour.wait(), 1) << output;
  const auto summary = output.find("\nSummary\n  FAIL  A product and its helper");
  EXPECT_NE(summary, std::string::npos) << output;
  EXPECT_NE(output.find("0 steps, then one failed", summary), std::string::npos) << output;
  expectNothingLeft();
}

TEST_F(TourTest, OnlyATerminalGetsColours) {
  auto coloured = spawnInTerminal(kTourThatFails);
  const std::string output = coloured.readAll();
  EXPECT_EQ(coloured.wait(), 1) << output;
  EXPECT_NE(output.find("\033[31mFAIL\033[0m"), std::string::npos) << output;
  auto plain = support::ChildProcess::spawn({"/bin/sh", "-c", kTourThatFails});
  EXPECT_EQ(plain.readAll().find('\033'), std::string::npos);
  EXPECT_EQ(plain.wait(), 1);
}

TEST_F(TourTest, ATerminalShowsWhatIsAwaited) {
  auto tour = spawnInTerminal(TOUR_PROGRAM);
  auto line = tour.readLine();
  while (line && line->find("  ..  waiting for ") == std::string::npos) {
    line = tour.readLine();
  }
  ASSERT_TRUE(line);
  // The line of the step takes its place.
  EXPECT_NE(line->find("\r\033[K  \033[32mok"), std::string::npos) << *line;
  tour.write("\x03");
  EXPECT_EQ(tour.wait(), 130);
  expectNothingLeft();
}

TEST_F(TourTest, CtrlCLeavesNothingBehind) {
  auto tour = support::ChildProcess::spawn({TOUR_PROGRAM});
  for (auto line = tour.readLine(); line && line->find("client-id") == std::string::npos;) {
    line = tour.readLine();
  }
  tour.signal(SIGINT);
  EXPECT_EQ(tour.wait(), 130);
  expectNothingLeft();
}

TEST_F(TourTest, AnUnknownArgumentIsRefused) {
  auto tour = support::ChildProcess::spawn({TOUR_PROGRAM, "--twice"});
  EXPECT_EQ(tour.wait(), 2);
  expectNothingLeft();
}

}  // namespace
