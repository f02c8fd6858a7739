#include "ClientComm/platform/posix/file_signature.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <string>

#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::FileSignature;

struct stat changedAt(timespec time) {
  struct stat status = {};
  status.st_mode = S_IFREG | 0644;
  status.st_ctim = time;
  return status;
}

bool isSettled(timespec changed, timespec now) {
  return FileSignature(changedAt(changed), now).isSettled();
}

TEST(FileSignature, IsSettledWhenTheCoarsestClockHasTicked) {
  EXPECT_FALSE(isSettled({100, 0}, {100, 0}));
  EXPECT_FALSE(isSettled({100, 0}, {100, 60'000'000})) << "some file systems tick every second";
  EXPECT_FALSE(isSettled({100, 0}, {101, 990'000'000})) << "or every two";
  EXPECT_FALSE(isSettled({100, 0}, {102, 5'000'000})) << "by a kernel clock that is 10 ms late";
  EXPECT_TRUE(isSettled({100, 0}, {102, 20'000'000}));
  EXPECT_TRUE(isSettled({100, 999'000'000}, {103, 50'000'000}));
}

TEST(FileSignature, IsNotSettledByATimeInTheFuture) {
  EXPECT_FALSE(isSettled({100, 0}, {99, 999'999'999}));
  EXPECT_FALSE(isSettled({std::numeric_limits<time_t>::max(), 0}, {100, 0}));
  EXPECT_TRUE(isSettled({0, 0}, {std::numeric_limits<time_t>::max(), 0}));
}

TEST(FileSignature, TellsEveryChangeOfAFile) {
  const std::string path = support::sandbox() + "/file";
  EXPECT_EQ(FileSignature::ofFile(path), std::nullopt);
  support::writeFile(path, "text");
  auto last = *FileSignature::ofFile(path);
  EXPECT_TRUE(last.isRegularFile());
  EXPECT_EQ(FileSignature::ofFile(path), last);
  const auto expectChange = [&](const char* what) {
    const auto now = *FileSignature::ofFile(path);
    EXPECT_FALSE(now == last) << what;
    last = now;
  };
  support::writeFile(path, "longer text");
  expectChange("the size");
  fs::last_write_time(path, fs::last_write_time(path) - std::chrono::hours(1));
  expectChange("the time");
  fs::permissions(path, fs::perms::owner_read);
  expectChange("the mode");
  fs::copy_file(path, path + ".new");
  fs::rename(path + ".new", path);
  expectChange("another file in its place");
  fs::remove(path);
  fs::create_directory(path);
  expectChange("a folder in its place");
  EXPECT_FALSE(FileSignature::ofFile(path)->isRegularFile());
}

}  // namespace
