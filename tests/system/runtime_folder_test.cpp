#include "ClientComm/platform/linux/runtime_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::fileNameForIdentifier;
using clientcomm::openRuntimeFolder;
using clientcomm::ScopedFd;

std::string folderPath() { return support::sandbox() + "/runtime/ClientComm"; }

mode_t modeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

TEST(RuntimeFolder, LiesUnderTheUsersRuntimeDirectory) {
  EXPECT_EQ(clientcomm::runtimeFolderPath(), folderPath());
}

TEST(RuntimeFolder, IsMadeForTheUserAlone) {
  const mode_t previous = umask(0);
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  umask(previous);
  ASSERT_TRUE(folder.isValid());
  EXPECT_EQ(modeOf(folderPath()), 0700U);
}

TEST(RuntimeFolder, IsMadeTogetherWithAMissingRuntimeDirectory) {
  fs::remove_all(support::sandbox() + "/runtime");
  ASSERT_TRUE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  EXPECT_EQ(modeOf(support::sandbox() + "/runtime"), 0700U);
  EXPECT_EQ(modeOf(folderPath()), 0700U);
}

TEST(RuntimeFolder, IsNotMadeUnlessAskedFor) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kFail);
  EXPECT_FALSE(folder.isValid());
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(fs::exists(folderPath()));
}

TEST(RuntimeFolder, OneThatExistsIsOpenedAsItIs) {
  ASSERT_TRUE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  support::writeFile(folderPath() + "/kept", "kept");
  EXPECT_TRUE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  EXPECT_TRUE(openRuntimeFolder(clientcomm::IfMissing::kFail).isValid());
  EXPECT_EQ(support::readFile(folderPath() + "/kept"), "kept");
}

TEST(RuntimeFolder, OneThatIsOpenToOthersIsClosedToThem) {
  fs::create_directory(folderPath());
  for (const mode_t mode : {0777U, 0755U, 0710U, 0500U}) {
    ASSERT_EQ(chmod(folderPath().c_str(), mode), 0);
    EXPECT_TRUE(openRuntimeFolder(clientcomm::IfMissing::kFail).isValid()) << std::oct << mode;
    EXPECT_EQ(modeOf(folderPath()), 0700U) << std::oct << mode;
  }
}

TEST(RuntimeFolder, OneOfAnotherUserIsRefusedAndLeftAlone) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  fs::create_directory(folderPath());
  ASSERT_EQ(chmod(folderPath().c_str(), 0777), 0);
  ASSERT_EQ(chown(folderPath().c_str(), 12345, 12345), 0);
  EXPECT_FALSE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(modeOf(folderPath()), 0777U);
}

TEST(RuntimeFolder, ALinkInItsPlaceIsRefused) {
  const std::string elsewhere = support::sandbox() + "/elsewhere";
  fs::create_directory(elsewhere);
  fs::create_directory_symlink(elsewhere, folderPath());
  EXPECT_FALSE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  EXPECT_TRUE(errno == ENOTDIR || errno == ELOOP) << errno;
}

TEST(RuntimeFolder, OneSwappedForALinkIsRefusedFromThenOn) {
  ASSERT_TRUE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  fs::rename(folderPath(), folderPath() + ".moved");
  fs::create_directory_symlink(folderPath() + ".moved", folderPath());
  EXPECT_FALSE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
}

TEST(RuntimeFolder, AFileInItsPlaceIsRefused) {
  support::writeFile(folderPath(), "no folder");
  EXPECT_FALSE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(support::readFile(folderPath()), "no folder");
}

TEST(RuntimeFolder, ItsPathMayBeLongerThanASocketAddress) {
  const std::string directory = support::sandbox() + "/" + std::string(200, 'r');
  setenv("XDG_RUNTIME_DIR", directory.c_str(), 1);
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  ASSERT_TRUE(folder.isValid());
  EXPECT_EQ(clientcomm::runtimeFolderPath(), directory + "/ClientComm");
  EXPECT_EQ(fs::read_symlink("/proc/self/fd/" + std::to_string(folder.get())),
            directory + "/ClientComm");
}

TEST(RuntimeFolder, ItsDescriptorIsNotInheritedByPrograms) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  EXPECT_EQ(fcntl(folder.get(), F_GETFD), FD_CLOEXEC);
}

TEST(RuntimeFolder, RefusalsLeaveNoDescriptorOpen) {
  fs::create_directory_symlink(support::sandbox(), folderPath());
  const int before = support::openDescriptorCount();
  for (int i = 0; i < 10; ++i)
    EXPECT_FALSE(openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  EXPECT_EQ(support::openDescriptorCount(), before);
}

TEST(FileNameForIdentifier, IsTheFrontHalfOfTheSha256InHexadecimalDigits) {
  EXPECT_EQ(fileNameForIdentifier("abc"), "ba7816bf8f01cfea414140de5dae2223");
  EXPECT_EQ(fileNameForIdentifier(""), "e3b0c44298fc1c149afbf4c8996fb924");
}

TEST(FileNameForIdentifier, HasOneLengthForIdentifiersOfAnyLengthAndContent) {
  const std::string odd("../a/b\0c\n", 9);
  EXPECT_EQ(fileNameForIdentifier(odd).size(), 32U);
  EXPECT_EQ(fileNameForIdentifier(odd).find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(fileNameForIdentifier(std::string(100'000, 'x')).size(), 32U);
}

TEST(FileNameForIdentifier, TellsIdentifiersApartThatDifferInCaseOrAfterANul) {
  EXPECT_NE(fileNameForIdentifier("com.example.a"), fileNameForIdentifier("com.example.A"));
  EXPECT_NE(fileNameForIdentifier({"a\0b", 3}), fileNameForIdentifier({"a\0c", 3}));
}

}  // namespace
