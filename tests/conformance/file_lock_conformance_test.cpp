#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "ClientComm/platform/file_lock.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::DirectoryLock;

constexpr std::chrono::milliseconds kLimit{20};

TEST(FileLockConformance, HasOneHolderAtATime) {
  std::optional<DirectoryLock> first;
  first.emplace(support::sandbox(), kLimit);
  EXPECT_TRUE(first->isHeld());
  EXPECT_FALSE(DirectoryLock(support::sandbox(), kLimit).isHeld());
  EXPECT_TRUE(DirectoryLock(support::sandbox() + "/config", kLimit).isHeld()) << "another folder";
  first.reset();
  EXPECT_TRUE(DirectoryLock(support::sandbox(), kLimit).isHeld());
}

TEST(FileLockConformance, IsFreeWhenItIsLeftToCopiesAndThereIsNone) {
  DirectoryLock lock(support::sandbox(), kLimit);
  ASSERT_TRUE(lock.isHeld());
  lock.leaveToCopies();
  EXPECT_FALSE(lock.isHeld());
  EXPECT_TRUE(DirectoryLock(support::sandbox(), kLimit).isHeld());
}

TEST(FileLockConformance, IsNotHeldWhereThereIsNoFolder) {
  EXPECT_FALSE(DirectoryLock(support::sandbox() + "/missing", kLimit).isHeld());
}

}  // namespace
