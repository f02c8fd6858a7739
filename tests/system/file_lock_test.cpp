#include "ClientComm/platform/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::DirectoryLock;
using support::ChildProcess;
using namespace std::chrono_literals;

class FileLock : public testing::Test {
 protected:
  const std::string folder_ =
      support::sandbox() + "/" + testing::UnitTest::GetInstance()->current_test_info()->name();

  void SetUp() override { fs::create_directory(folder_); }

  // A process that holds the folder until it is ended; it does when this returns.
  ChildProcess holder() const {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    auto process = ChildProcess::fork([this, &ready] {
      const DirectoryLock lock(folder_, 10s);
      if (!lock.isHeld() || write(ready[1], "x", 1) != 1) return 1;
      for (;;) pause();
    });
    close(ready[1]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    return process;
  }
};

TEST_F(FileLock, IsHeldByOneProcessAtATime) {
  auto other = holder();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(DirectoryLock(folder_, 50ms).isHeld());
  EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms) << "it waited as long as it was told";
  other.signal(SIGKILL);
  other.wait();
  EXPECT_TRUE(DirectoryLock(folder_, 0ms).isHeld()) << "a killed holder holds nothing";
}

TEST_F(FileLock, IsTakenAsSoonAsItIsFree) {
  auto other = holder();
  auto waiting =
      ChildProcess::fork([this] { return DirectoryLock(folder_, 20s).isHeld() ? 0 : 1; });
  other.signal(SIGKILL);
  EXPECT_EQ(waiting.wait(), 0);
}

TEST_F(FileLock, IsFreeAfterItsScope) {
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(DirectoryLock(folder_, 0ms).isHeld());
}

TEST_F(FileLock, IsFreeAfterItsScopeThoughAChildWasForkedMeanwhile) {
  auto lock = std::make_unique<DirectoryLock>(folder_, 0ms);
  auto child = ChildProcess::fork([] {
    for (;;) pause();
    return 0;
  });
  lock.reset();
  EXPECT_TRUE(DirectoryLock(folder_, 0ms).isHeld());
}

TEST_F(FileLock, IsNotInheritedByAProgramStartedMeanwhile) {
  const int before = support::openDescriptorCount();
  const DirectoryLock lock(folder_, 0ms);
  ASSERT_TRUE(lock.isHeld());
  ASSERT_EQ(support::openDescriptorCount(), before + 1);
  auto program = ChildProcess::spawn({"/bin/sh", "-c", "ls -l /proc/self/fd"});
  EXPECT_EQ(program.readAll().find(folder_), std::string::npos);
  EXPECT_EQ(program.wait(), 0);
}

TEST_F(FileLock, CannotBeHeldOnWhatIsNoFolder) {
  support::writeFile(folder_ + "/file", "x");
  EXPECT_FALSE(DirectoryLock(folder_ + "/file", 1s).isHeld());
  EXPECT_FALSE(DirectoryLock(folder_ + "/missing", 1s).isHeld());
  EXPECT_FALSE(DirectoryLock("", 1s).isHeld());
  EXPECT_FALSE(fs::exists(folder_ + "/missing"));
}

TEST_F(FileLock, LeavesNothingOnDisk) {
  { const DirectoryLock lock(folder_, 0ms); }
  EXPECT_TRUE(fs::is_empty(folder_));
}

TEST_F(FileLock, KeepsManyProcessesApart) {
  const std::string file = support::sandbox() + "/counter";
  support::writeFile(file, "0");
  std::vector<ChildProcess> counters;
  for (int i = 0; i < 6; ++i) {
    counters.push_back(ChildProcess::fork([this, &file] {
      for (int n = 0; n < 20; ++n) {
        const DirectoryLock lock(folder_, 60s);
        if (!lock.isHeld()) return 1;
        const int value = std::stoi(support::readFile(file));
        support::writeFile(file, std::to_string(value + 1));
      }
      return 0;
    }));
  }
  for (ChildProcess& counter : counters) EXPECT_EQ(counter.wait(), 0);
  EXPECT_EQ(support::readFile(file), "120");
}

}  // namespace
