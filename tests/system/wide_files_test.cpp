#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/property_list.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// Sizes, inode numbers and dates that need more than 32 bits. Tests and library are compiled with
// the same definitions, so what a 32-bit build of either cannot see fails here.

namespace {

namespace fs = std::filesystem;
using support::ChildProcess;
using support::sandbox;

constexpr std::uint64_t kLargest32BitNumber = std::numeric_limits<std::uint32_t>::max();
constexpr char kIdentifier[] = "com.example.wide";

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status;
}

std::string infoOf(const std::string& application) { return application + "/Contents/Info.plist"; }

std::string makeEchoApplication() {
  return support::makeApplication("Wide", kIdentifier, support::kEchoRole);
}

/// Copies, rewrites, runs and calls the application as a host does with its helper.
void expectServes(const std::string& application) {
  EXPECT_EQ(clientcomm::Bundle(application).bundleIdentifier(), kIdentifier);
  const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string copy = sandbox() + "/" + test + ".app";
  EXPECT_TRUE(clientcomm::copyPath(application, copy).isOk());
  EXPECT_EQ(statusOf(infoOf(copy)).st_mtim.tv_sec, statusOf(infoOf(application)).st_mtim.tv_sec);
  const ChildProcess running = support::runApplication(application);
  EXPECT_TRUE(support::waitUntilReachable(kIdentifier));
  EXPECT_TRUE(TQHPProcessList::share().applicationIsRunning(kIdentifier, application));
  auto info = clientcomm::dictionaryWithContentsOfFile(infoOf(application));
  ASSERT_TRUE(info);
  info->insert_or_assign("Added", "text");
  EXPECT_TRUE(clientcomm::writeDictionaryToFile(*info, infoOf(application)));
  EXPECT_EQ(clientcomm::Bundle(application).infoString("Added"), "text");
}

TEST(WideFiles, AFileOfThreeGiBIsCopiedWhole) {
  constexpr std::uint64_t kSize = (std::uint64_t{3} << 30U) + 5;
  const std::string folder = sandbox() + "/disk";
  if (!support::ownMounts()) GTEST_SKIP() << "this user gets no mounts of its own";
  // This file system shares the blocks of a copy, and a hole takes no room.
  const support::MountedFileSystem disk("btrfs", folder);
  if (!disk.problem().empty()) GTEST_SKIP() << disk.problem();
  support::writeFile(folder + "/source", "begin");
  fs::resize_file(folder + "/source", kSize - 3);
  std::ofstream(folder + "/source", std::ios::app) << "end";
  EXPECT_TRUE(clientcomm::copyPath(folder + "/source", folder + "/copy").isOk());
  ASSERT_EQ(fs::file_size(folder + "/copy"), kSize);
  std::ifstream copy(folder + "/copy");
  copy.seekg(-4, std::ios::end);
  std::string end(4, '?');
  copy.read(end.data(), 4);
  EXPECT_EQ(end, std::string("\0end", 4));
}

TEST(WideFiles, AnInfoPlistOfMoreThanFourGiBIsNotTakenForItsFirstBytes) {
  const std::string application = makeEchoApplication();
  const std::uint64_t size = fs::file_size(infoOf(application));
  fs::resize_file(infoOf(application), (std::uint64_t{4} << 30U) + size);
  EXPECT_EQ(clientcomm::dictionaryWithContentsOfFile(infoOf(application)), std::nullopt);
  EXPECT_EQ(clientcomm::Bundle(application).bundleIdentifier(), std::nullopt);
}

TEST(WideFiles, AnApplicationWithLargeInodeNumbersServesLikeAnyOther) {
  const std::string application = makeEchoApplication();
  if (!support::ownMounts()) GTEST_SKIP() << "this user gets no mounts of its own";
  const support::MountedFileSystem overlay("overlay", sandbox() + "/apps");
  if (!overlay.problem().empty()) GTEST_SKIP() << overlay.problem();
  if (statusOf(infoOf(application)).st_ino <= kLargest32BitNumber) {
    GTEST_SKIP() << "this kernel's overlay gives no large inode numbers";
  }
  expectServes(application);
}

TEST(WideFiles, AnApplicationWhoseInfoPlistIsDated2040ServesLikeAnyOther) {
  constexpr std::int64_t kYear2040 = 2'208'988'800;  // 1 January, in seconds since 1970
  const std::string application = makeEchoApplication();
  const timespec time = {kYear2040, 0};
  const timespec times[] = {time, time};
  ASSERT_EQ(utimensat(AT_FDCWD, infoOf(application).c_str(), times, 0), 0);
  ASSERT_EQ(statusOf(infoOf(application)).st_mtim.tv_sec, kYear2040);
  expectServes(application);
}

}  // namespace
