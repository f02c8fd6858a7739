// How a settings file is written, on the file systems that an application is found on.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/posix/settings_file.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/permissions.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using clientcomm::WriteForm;

int write(const std::string& path, const std::string& bytes, WriteForm form) {
  return clientcomm::writeSettingsFile(path, bytes, form, 0666).code();
}
int writeInPlace(const std::string& path, const std::string& bytes) {
  return write(path, bytes, WriteForm::kInPlace);
}

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

std::vector<std::string> listingOf(const std::string& folder) {
  return clientcomm::contentsOfDirectoryAtPath(folder);
}

/// Runs on one file system each, over a folder of the sandbox.
class SettingsWriteOn : public testing::TestWithParam<const char*> {
 protected:
  void mountOver(const std::string& path) {
    if (!support::ownMounts()) GTEST_SKIP() << "this user gets no mounts of its own";
    mounted_ = std::make_unique<support::MountedFileSystem>(GetParam(), path);
    if (!mounted_->problem().empty()) GTEST_SKIP() << mounted_->problem();
  }

 private:
  std::unique_ptr<support::MountedFileSystem> mounted_;
};

std::string nameOf(const testing::TestParamInfo<const char*>& info) { return info.param; }
INSTANTIATE_TEST_SUITE_P(FileSystems, SettingsWriteOn, testing::Values("ext4", "tmpfs", "btrfs"),
                         nameOf);

TEST_P(SettingsWriteOn, EverySwitchGoesIntoTheSameOneOfTwoPropertyLists) {
  const std::string contents = support::hostBundlePath() + "/Contents";
  mountOver(contents);
  if (IsSkipped()) return;
  support::RecordingTransport::install();
  support::writeHostInfo(support::defaultHostInfo());
  support::writeFile(contents + "/Other.plist", clientcomm::xmlPropertyList({}));
  support::writeFile(contents + "/Resources/en.lproj/A.strings", "\"TipsEnable\" = \"1\";");
  support::writeFile(contents + "/Resources/en.lproj/B.strings", "\"TipsEnable\" = \"1\";");
  auto& controller = TQHPHelperCommunicate::share();
  const auto list = controller.searchPlistFilePath(support::hostBundlePath());
  const auto table = controller.searchCurrentStringsFilePath(support::hostBundlePath());
  const auto listing = listingOf(contents);
  const auto tables = listingOf(contents + "/Resources/en.lproj");
  for (int i = 0; i < 5; ++i) {
    const bool isOn = i % 2 != 0;
    controller.setTipsEnable(isOn);
    EXPECT_EQ(listingOf(contents), listing);
    EXPECT_EQ(listingOf(contents + "/Resources/en.lproj"), tables);
    EXPECT_EQ(clientcomm::dictionaryWithContentsOfFile(*list)->at("TipsEnable"),
              PropertyListValue(isOn));
    EXPECT_EQ(clientcomm::dictionaryWithContentsOfFile(*table)->at("TipsEnable"),
              PropertyListValue(isOn ? "1" : "0"));
  }
}

TEST_P(SettingsWriteOn, NothingButTheContentChanges) {
  const std::string folder = support::sandbox() + "/disk";
  mountOver(folder);
  if (IsSkipped()) return;
  const std::string path = folder + "/Info.plist";
  support::writeFile(path, "the old content");
  fs::create_hard_link(path, folder + "/another name");
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  const bool isRoot = geteuid() == 0;  // only root can give a file away
  ASSERT_EQ(chown(path.c_str(), isRoot ? 1234 : geteuid(), isRoot ? 2345 : getegid()), 0);
  const bool takesAttributes = setxattr(path.c_str(), "user.note", "kept", 4, 0) == 0;
  ASSERT_TRUE(takesAttributes || errno == ENOTSUP);
  const struct stat before = statusOf(path);
  for (const char* content : {"new", "another content that is longer than the old one", ""}) {
    ASSERT_EQ(writeInPlace(path, content), 0);
    EXPECT_EQ(support::readFile(path), content);
    EXPECT_EQ(support::readFile(folder + "/another name"), content);
    const struct stat after = statusOf(path);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_nlink, 2U);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
  }
  if (takesAttributes) {
    char value[8] = {};
    EXPECT_EQ(getxattr(path.c_str(), "user.note", value, sizeof value), 4);
  }
}

// --- What is refused, and what a failure leaves ---

class SettingsWrite : public testing::Test {
 protected:
  const std::string folder_ = support::sandbox() + "/folder";
  const std::string path_ = folder_ + "/Info.plist";

  void SetUp() override { support::writeFile(path_, "the old content"); }
};

TEST_F(SettingsWrite, AFileInAFolderThatIsNotWritableIsWrittenByEitherForm) {
  const support::SealedFolder sealed(folder_);
  const support::BoundByPermissions bound;
  for (const WriteForm form : {WriteForm::kInPlace, WriteForm::kByRename}) {
    const std::string content = form == WriteForm::kInPlace ? "short" : "by rename, in vain";
    EXPECT_EQ(write(path_, content, form), 0);
    EXPECT_EQ(support::readFile(path_), content);
  }
  EXPECT_EQ(listingOf(folder_), std::vector<std::string>{"Info.plist"});
  EXPECT_TRUE(listingOf(support::sandbox() + "/config/Preferences").empty())
      << "the recovery copy is removed";
}

TEST_F(SettingsWrite, AReadOnlyFileIsRefusedByEitherForm) {
  ASSERT_EQ(chmod(path_.c_str(), 0444), 0);
  const ino_t inode = statusOf(path_).st_ino;
  const support::BoundByPermissions bound;
  for (const WriteForm form : {WriteForm::kInPlace, WriteForm::kByRename}) {
    EXPECT_EQ(write(path_, "new", form), EACCES);
    EXPECT_EQ(support::readFile(path_), "the old content");
    EXPECT_EQ(statusOf(path_).st_ino, inode);
    EXPECT_EQ(listingOf(folder_), std::vector<std::string>{"Info.plist"});
  }
}

TEST_F(SettingsWrite, AFileBeyondTheLimitIsNotReadIntoMemory) {
  std::string bytes;
  fs::resize_file(path_, clientcomm::kMaximumSettingsFileSize);
  EXPECT_TRUE(clientcomm::readSettingsFile(path_, bytes).isOk());
  EXPECT_EQ(bytes.size(), clientcomm::kMaximumSettingsFileSize);
  bytes.clear();
  fs::resize_file(path_, clientcomm::kMaximumSettingsFileSize + 1);
  EXPECT_EQ(clientcomm::readSettingsFile(path_, bytes).code(), EFBIG);
  EXPECT_TRUE(bytes.empty());
}

TEST_F(SettingsWrite, WhatIsNoRegularFileIsRefused) {
  const std::string pipe = folder_ + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  fs::create_symlink(pipe, folder_ + "/link");
  for (const WriteForm form : {WriteForm::kInPlace, WriteForm::kByRename}) {
    EXPECT_EQ(write(pipe, "new", form), EINVAL);
    EXPECT_EQ(write(folder_ + "/link", "new", form), EINVAL);
    EXPECT_EQ(write(folder_, "new", form), EINVAL);
  }
}

TEST_F(SettingsWrite, APreferencesFileIsReplacedByRename) {
  const ino_t inode = statusOf(path_).st_ino;
  ASSERT_EQ(write(path_, "new", WriteForm::kByRename), 0);
  EXPECT_EQ(support::readFile(path_), "new");
  EXPECT_NE(statusOf(path_).st_ino, inode);
}

TEST_F(SettingsWrite, APreferencesFileThatIsReplacedKeepsItsMode) {
  for (const mode_t mode : {0600U, 0644U, 0664U}) {
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
    const ino_t inode = statusOf(path_).st_ino;
    ASSERT_EQ(write(path_, "new", WriteForm::kByRename), 0);
    EXPECT_NE(statusOf(path_).st_ino, inode);
    EXPECT_EQ(statusOf(path_).st_mode & 07777U, mode);
  }
}

TEST_F(SettingsWrite, APreferencesFileWithAnotherNameOrAttributesIsWrittenInPlace) {
  const ino_t inode = statusOf(path_).st_ino;
  fs::create_hard_link(path_, folder_ + "/another name");
  ASSERT_EQ(write(path_, "new", WriteForm::kByRename), 0);
  EXPECT_EQ(support::readFile(folder_ + "/another name"), "new");
  fs::remove(folder_ + "/another name");
  if (setxattr(path_.c_str(), "user.note", "kept", 4, 0) == 0) {
    ASSERT_EQ(write(path_, "newer", WriteForm::kByRename), 0);
    EXPECT_GT(getxattr(path_.c_str(), "user.note", nullptr, 0), 0);
  }
  EXPECT_EQ(statusOf(path_).st_ino, inode);
}

TEST_F(SettingsWrite, OneThatFailsMidwayPutsTheOldContentBack) {
  if (!support::ownMounts()) GTEST_SKIP() << "this user gets no mounts of its own";
  const support::MountedFileSystem disk("tmpfs", folder_);
  ASSERT_EQ(disk.problem(), "");
  const std::string old(4'000, 'o');
  support::writeFile(path_, old);
  const std::string content(600'000, 'n');
  // Room for the recovery copy, and for half of the content.
  const auto filler = static_cast<std::size_t>(fs::space(folder_).available) - 900'000;
  support::writeFile(folder_ + "/filler", std::string(filler, 'f'));
  EXPECT_EQ(writeInPlace(path_, content), ENOSPC);
  EXPECT_EQ(support::readFile(path_), old);
  EXPECT_EQ(listingOf(folder_).size(), 2U) << "and no recovery copy";
  fs::remove(folder_ + "/filler");
  EXPECT_EQ(writeInPlace(path_, content), 0);
  EXPECT_EQ(support::readFile(path_), content);
}

TEST_F(SettingsWrite, TwoWritersNeverMixTheirContents) {
  const auto contentOf = [](int writer, int round) {
    return std::string(static_cast<std::size_t>(5'000 + 3'000 * writer + 97 * round),
                       static_cast<char>('a' + writer));
  };
  const auto isMixed = [](const std::string& content) {
    return content.find_first_not_of(content[0]) != std::string::npos;
  };
  ASSERT_EQ(writeInPlace(path_, contentOf(0, 0)), 0);
  std::vector<support::ChildProcess> writers;
  for (int writer = 0; writer < 2; ++writer) {
    writers.push_back(support::ChildProcess::fork([&, writer] {
      int code = 0;
      for (int round = 0; round < 60 && (code == 0 || code == EBUSY); ++round) {
        code = writeInPlace(path_, contentOf(writer, round));
      }
      support::writeFile(support::sandbox() + "/done" + std::to_string(writer), "");
      return code;
    }));
  }
  int mixed = 0;
  EXPECT_TRUE(support::waitUntil([&] {
    std::string content;
    EXPECT_TRUE(clientcomm::readSettingsFile(path_, content).isOk());
    mixed += isMixed(content) ? 1 : 0;
    return fs::exists(support::sandbox() + "/done0") && fs::exists(support::sandbox() + "/done1");
  }));
  for (auto& writer : writers) {
    const int code = writer.wait();
    EXPECT_TRUE(code == 0 || code == EBUSY) << code;
  }
  EXPECT_EQ(mixed, 0);
  EXPECT_FALSE(isMixed(support::readFile(path_)));
  EXPECT_EQ(listingOf(folder_), std::vector<std::string>{"Info.plist"});
}

}  // namespace
