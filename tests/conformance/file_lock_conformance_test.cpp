#include <gtest/gtest.h>

#include <cerrno>
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
  EXPECT_EQ(DirectoryLock(support::sandbox(), kLimit).status().code(), ETIMEDOUT);
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
  const DirectoryLock lock(support::sandbox() + "/missing", kLimit);
  EXPECT_FALSE(lock.isHeld());
  EXPECT_EQ(lock.status().domain(), clientcomm::kLockErrorDomain);
  EXPECT_EQ(lock.status().code(), ENOENT);
  EXPECT_EQ(lock.status().path(), support::sandbox() + "/missing");
}

}  // namespace
