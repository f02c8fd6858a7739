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
  EXPECT_NE(output.find("all of them held"), std::string::npos) << output;
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
