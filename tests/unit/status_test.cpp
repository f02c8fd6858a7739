#include "ClientComm/platform/status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

#include "tests/support/allocation_count.h"

namespace {

using clientcomm::Status;

TEST(Status, IsSuccessWithoutACode) {
  const Status status;
  EXPECT_TRUE(status.isOk());
  EXPECT_EQ(status.code(), 0);
  EXPECT_FALSE(status.error());
  EXPECT_TRUE(Status::ofFile(0, "open", "/file").isOk());
}

TEST(Status, TellsDomainCodeCallAndPathOfAFailure) {
  const Status status(clientcomm::kLockErrorDomain, ETIMEDOUT, "flock", "/folder");
  EXPECT_FALSE(status.isOk());
  EXPECT_STREQ(status.domain(), "LockErrorDomain");
  EXPECT_EQ(status.code(), ETIMEDOUT);
  EXPECT_STREQ(status.call(), "flock");
  EXPECT_EQ(status.path(), "/folder");
}

TEST(Status, BecomesAnErrorObject) {
  const auto error = Status::ofFile(ENOSPC, "write", "/folder/file").error();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, clientcomm::kFileErrorDomain);
  EXPECT_EQ(error->code, ENOSPC);
  EXPECT_EQ(error->userInfo.at(clientcomm::kErrorPathKey), "/folder/file");
  EXPECT_EQ(error->userInfo.at(clientcomm::kErrorCallKey), "write");
}

TEST(Status, TakesThePathFromTheFirstThatKnowsIt) {
  const Status status = Status::ofFile(EIO, "read").at("/first").at("/second");
  EXPECT_EQ(status.path(), "/first");
  EXPECT_EQ(Status().at("/first").path(), "");
}

TEST(Status, PutsAPathBelowAFolder) {
  EXPECT_EQ(Status::ofFile(EIO, "read", "file").below("/folder").below("/tree").path(),
            "/tree/folder/file");
  EXPECT_EQ(Status().below("/folder").path(), "");
}

TEST(Status, AllocatesNothingOnSuccess) {
  const std::string path(100, 'x');
  const auto before = support::allocationCount();
  for (int i = 0; i < 100; ++i) {
    Status status = Status::ofFile(0, "open", path).at(path).below(path);
    const Status other = std::move(status);
    ASSERT_TRUE(other.isOk());
  }
  EXPECT_EQ(support::allocationCount(), before);
}

}  // namespace
