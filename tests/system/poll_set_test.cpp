#include "ClientComm/platform/linux/poll_set.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "ClientComm/platform/posix/scoped_fd.h"
#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::PollSet;
using clientcomm::ScopedFd;

constexpr int kNever = -1;
constexpr int kLimit = 20'000;  // ms

bool isReadable(const PollSet& set, int limit = 0) {
  pollfd entry{set.descriptor(), POLLIN, 0};
  return poll(&entry, 1, limit) > 0;
}

/// A pipe with something to read in it.
struct FullPipe {
  FullPipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    output = ScopedFd(ends[0]);
    input = ScopedFd(ends[1]);
    EXPECT_EQ(write(input.get(), "x", 1), 1);
  }
  ScopedFd output;
  ScopedFd input;
};

TEST(PollSet, IsReadableWhileADescriptorIs) {
  PollSet set;
  ASSERT_TRUE(set.open());
  const FullPipe full;
  const std::vector<pollfd> entries{{full.output.get(), POLLIN, 0}};
  EXPECT_FALSE(isReadable(set));
  EXPECT_FALSE(set.isReady());
  set.watch(entries, kNever);
  EXPECT_TRUE(isReadable(set));
  EXPECT_TRUE(set.isReady());
  char byte = 0;
  ASSERT_EQ(read(full.output.get(), &byte, 1), 1);
  EXPECT_FALSE(isReadable(set));
  EXPECT_FALSE(set.isReady());
}

TEST(PollSet, IsReadableOnceTheTimeHasPassedUntilItIsSetAnew) {
  PollSet set;
  ASSERT_TRUE(set.open());
  set.watch({}, 0);
  EXPECT_TRUE(isReadable(set, kLimit));
  EXPECT_TRUE(set.isReady());
  set.watch({}, 3'600'000);
  EXPECT_FALSE(isReadable(set, 50));
  set.watch({}, 20);
  EXPECT_TRUE(isReadable(set, kLimit));
  set.watch({}, kNever);
  EXPECT_FALSE(isReadable(set, 50));
}

TEST(PollSet, LeavesOutWhatIsNotToBeWatchedAnyMore) {
  PollSet set;
  ASSERT_TRUE(set.open());
  FullPipe full;
  std::vector<pollfd> entries{{full.output.get(), POLLIN, 0}};
  set.watch(entries, kNever);
  EXPECT_TRUE(isReadable(set));
  full.input.reset();  // which epoll tells of, whatever the events
  entries[0].events = 0;
  set.watch(entries, kNever);
  EXPECT_FALSE(isReadable(set));
  entries[0].events = POLLIN;
  set.watch(entries, kNever);
  EXPECT_TRUE(isReadable(set));
  set.watch({}, kNever);
  EXPECT_FALSE(isReadable(set));
}

TEST(PollSet, LeavesAnotherFileUnderItsNumberAlone) {
  PollSet set;
  ASSERT_TRUE(set.open());
  FullPipe full;
  const std::vector<pollfd> entries{{full.output.get(), POLLIN, 0}};
  set.watch(entries, kNever);
  const support::ChildProcess copy = support::ChildProcess::fork([] {
    for (;;) pause();
    return 0;
  });
  full.output.reset();
  set.watch({}, kNever);  // which does not reach it, since the copy has it open
  const ScopedFd hosts(epoll_create1(EPOLL_CLOEXEC));
  ASSERT_EQ(dup2(hosts.get(), set.descriptor()), set.descriptor());
  EXPECT_TRUE(set.isReady());
  EXPECT_FALSE(set.isReady()) << "it is left out now";
  set.watch({}, 0);
  EXPECT_FALSE(isReadable(set, 50)) << "the host's own set has nothing of it";
}

TEST(PollSet, LooksAgainSoonAtADescriptorThatCannotBeWatched) {
  PollSet set;
  ASSERT_TRUE(set.open());
  const std::string path = support::sandbox() + "/file";
  support::writeFile(path, "text");
  const ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));  // refused by the kernel
  const std::vector<pollfd> entries{{file.get(), POLLIN, 0}};
  set.watch(entries, kNever);
  EXPECT_TRUE(isReadable(set, kLimit));
}

}  // namespace
