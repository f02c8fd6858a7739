// What a write of a settings file that is cut short leaves, and what becomes of it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/posix/settings_file.h"
#include "tests/support/permissions.h"
#include "tests/support/stepped_process.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::WriteForm;

class SettingsCrash : public testing::Test {
 protected:
  const std::string folder_ = support::sandbox() + "/folder";
  const std::string path_ = folder_ + "/Info.plist";
  const std::string preferences_ = support::sandbox() + "/config/Preferences";
  const std::string copyName_ = ".Info.plist.recovery-" + std::to_string(geteuid());
  // They differ at the start, so that all that follows has moved.
  const std::string old_ = "<old/>" + numbers(2'200) + "<end/>";
  const std::string new_ = "<a new one/>" + numbers(2'000) + "<end/>";

  void SetUp() override { support::writeFile(path_, old_); }

  static std::string numbers(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += std::to_string(i) + ",";
    return text;
  }

  int write(const std::string& bytes, WriteForm form = WriteForm::kInPlace) const {
    return clientcomm::writeSettingsFile(path_, bytes, form, 0666).code();
  }
  std::string readBack() const {
    std::string bytes;
    EXPECT_TRUE(clientcomm::readSettingsFile(path_, bytes).isOk());
    return bytes;
  }
  std::vector<std::string> entries() const {
    return clientcomm::contentsOfDirectoryAtPath(folder_);
  }
  void writeCopy(const std::string& before, const std::string& after) const {
    support::writeFile(folder_ + "/" + copyName_,
                       "ClientComm settings write " + std::to_string(before.size()) + " " +
                           std::to_string(after.size()) + "\n" + before + after);
  }

  /// Kills a process at every step of the write of `after` over `before`, and calls `check` each
  /// time. @return how many steps there are; 0 where no process can be traced.
  int killAtEveryStep(const std::string& before, const std::string& after, WriteForm form,
                      const std::function<void()>& check) const {
    constexpr int kMostSteps = 200;
    for (int last = 1; last <= kMostSteps; ++last) {
      support::writeFile(path_, before);
      support::SteppedProcess writer([&] { write(after, form); });
      if (!writer.isTraced()) return 0;
      int steps = 0;
      while (steps < last && writer.step()) ++steps;
      if (steps < last) return steps;
      writer.kill();
      SCOPED_TRACE("killed before step " + std::to_string(last));
      check();
    }
    ADD_FAILURE() << "the write does not end";
    return 0;
  }

  /// What must hold wherever a write of `after` over `before` was killed.
  void expectRecovered(const std::string& before, const std::string& after) {
    const std::string raw = support::readFile(path_);
    const std::string read = readBack();
    EXPECT_TRUE(read == before || read == after) << read.size() << " bytes";
    const bool isCutShort = raw != before && raw != after;
    EXPECT_TRUE(isCutShort || read == raw);
    EXPECT_EQ(support::readFile(path_), read) << "every other program reads it too";
    EXPECT_FALSE(fs::exists(folder_ + "/" + copyName_));
    wasCutShort_ = wasCutShort_ || isCutShort;
    EXPECT_EQ(write(before), 0);
    EXPECT_EQ(entries(), std::vector<std::string>{"Info.plist"});
  }

  bool wasCutShort_ = false;
};

TEST_F(SettingsCrash, AtAnyStepLeavesEitherContentRecoverable) {
  const std::pair<std::string, std::string> writes[] = {{old_, new_}, {new_, old_}, {"", new_}};
  for (const auto& [before, after] : writes) {
    const int steps =
        killAtEveryStep(before, after, WriteForm::kInPlace,
                        [&, &from = before, &to = after] { expectRecovered(from, to); });
    if (steps == 0) GTEST_SKIP() << "no process can be traced here";
    EXPECT_GT(steps, 5);
  }
  EXPECT_TRUE(wasCutShort_) << "no kill met the write itself";
}

TEST_F(SettingsCrash, InAFolderThatIsNotWritableIsRecoveredFromThePreferences) {
  const support::SealedFolder sealed(folder_);
  const support::BoundByPermissions bound;
  const int steps = killAtEveryStep(old_, new_, WriteForm::kInPlace, [&] {
    expectRecovered(old_, new_);
    EXPECT_TRUE(clientcomm::contentsOfDirectoryAtPath(preferences_).empty());
  });
  if (steps == 0) GTEST_SKIP() << "no process can be traced here";
  EXPECT_TRUE(wasCutShort_);
}

TEST_F(SettingsCrash, OfAReplacementLeavesTheOldFileOrTheNewOne) {
  const int steps = killAtEveryStep(old_, new_, WriteForm::kByRename, [&] {
    const std::string raw = support::readFile(path_);
    EXPECT_TRUE(raw == old_ || raw == new_);
    EXPECT_EQ(write(old_, WriteForm::kByRename), 0);
    EXPECT_EQ(entries(), std::vector<std::string>{"Info.plist"});
  });
  if (steps == 0) GTEST_SKIP() << "no process can be traced here";
}

TEST_F(SettingsCrash, ThatLeavesSomePagesOldIsCompleted) {
  std::string torn = old_;
  torn.replace(4'096, 4'096, new_, 4'096, 4'096);
  support::writeFile(path_, torn);
  writeCopy(old_, new_);
  EXPECT_EQ(readBack(), new_);
  EXPECT_EQ(support::readFile(path_), new_);
  EXPECT_EQ(entries(), std::vector<std::string>{"Info.plist"});
}

TEST_F(SettingsCrash, ThatLeavesTheFileCutOffOrEmptyIsCompleted) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{4'096}}) {
    support::writeFile(path_, new_.substr(0, size));
    writeCopy(old_, new_);
    EXPECT_EQ(readBack(), new_);
    EXPECT_EQ(support::readFile(path_), new_);
  }
}

TEST_F(SettingsCrash, BeforeAnotherProgramWroteTheFileChangesNothing) {
  for (const std::string& content : {old_, new_, std::string("<edited/>"), old_ + new_}) {
    support::writeFile(path_, content);
    writeCopy(old_, new_);
    EXPECT_EQ(readBack(), content);
    EXPECT_EQ(support::readFile(path_), content);
    EXPECT_EQ(entries(), std::vector<std::string>{"Info.plist"}) << "the copy is of no more use";
  }
}

TEST_F(SettingsCrash, IsNotRecoveredFromAFileThatIsNoCopy) {
  const std::string copy = folder_ + "/" + copyName_;
  const std::string heading = "ClientComm settings write ";
  for (const std::string& bytes :
       {std::string(), std::string("rubbish"), heading, heading + "1 1", heading + "1 1\n",
        heading + "99999999999999999999 1\nab", heading + "18446744073709551615 3\nab",
        heading + "-1 3\nab", heading + "1 1\nabc"}) {
    support::writeFile(path_, "");
    support::writeFile(copy, bytes);
    EXPECT_EQ(readBack(), "") << bytes;
    EXPECT_EQ(write(new_), 0) << "and it does not stop a write";
    EXPECT_EQ(readBack(), new_);
    EXPECT_FALSE(fs::exists(copy));
  }
}

TEST_F(SettingsCrash, IsNotRecoveredFromAnotherUsersCopy) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  writeCopy(old_, new_);
  ASSERT_EQ(chown((folder_ + "/" + copyName_).c_str(), 1234, 1234), 0);
  support::writeFile(path_, "<");
  EXPECT_EQ(readBack(), "<");
}

TEST_F(SettingsCrash, OfAProcessThatIsOnlyStoppedIsLeftToIt) {
  support::SteppedProcess writer([&] { write(new_); });
  if (!writer.isTraced()) GTEST_SKIP() << "no process can be traced here";
  while (!fs::exists(folder_ + "/" + copyName_)) ASSERT_TRUE(writer.step());
  EXPECT_EQ(readBack(), old_);
  EXPECT_TRUE(fs::exists(folder_ + "/" + copyName_));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(write("<another/>"), EBUSY);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(support::readFile(path_), old_);
  while (support::readFile(path_) == old_) ASSERT_TRUE(writer.step());
  EXPECT_EQ(readBack(), new_) << "the write is under way: a reader sees its content whole";
  writer.kill();
  EXPECT_EQ(write("<another/>"), 0);
  EXPECT_EQ(readBack(), "<another/>");
}

}  // namespace
