// Property lists in files, and what the process around them may do.

#include <gtest/gtest.h>
#include <locale.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/strings_file.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::dictionaryWithContentsOfFile;
using clientcomm::PropertyListDictionary;
using clientcomm::propertyListFromBytes;
using clientcomm::PropertyListValue;
using clientcomm::writeDictionaryToFile;
using clientcomm::xmlPropertyList;
using Array = PropertyListValue::Array;

class PropertyListFile : public testing::Test {
 protected:
  const std::string folder_ =
      support::sandbox() + "/" + testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string path_ = folder_ + "/Info.plist";

  void SetUp() override { fs::create_directory(folder_); }
  std::vector<std::string> entries() const {
    return clientcomm::contentsOfDirectoryAtPath(folder_);
  }
};

void waitUntilSettled(const std::string& path) {
  EXPECT_TRUE(
      support::waitUntil([&] { return clientcomm::FileSignature::ofFile(path)->isSettled(); },
                         std::chrono::seconds(30)));
}

// A file that was written a moment ago may change without a trace, and is read each time.
TEST_F(PropertyListFile, IsReadOnceWhereItHasNotChangedForAWhile) {
  const PropertyListDictionary former{{"Key", "former"}};
  ASSERT_TRUE(writeDictionaryToFile(former, path_));
  waitUntilSettled(path_);
  EXPECT_EQ(dictionaryWithContentsOfFile(path_), former);
  support::ChildProcess child = support::ChildProcess::fork([&] {
    support::refuseSystemCall(SYS_openat, EIO);
    return dictionaryWithContentsOfFile(path_) == former ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
  ASSERT_TRUE(writeDictionaryToFile({{"Key", "present"}}, path_));
  waitUntilSettled(path_);
  EXPECT_EQ(dictionaryWithContentsOfFile(path_), (PropertyListDictionary{{"Key", "present"}}));
}

TEST_F(PropertyListFile, IsWrittenAndReadBack) {
  const PropertyListDictionary dictionary = {{"TipsEnable", true}, {"list", Array{1, "two"}}};
  ASSERT_TRUE(writeDictionaryToFile(dictionary, path_));
  EXPECT_EQ(dictionaryWithContentsOfFile(path_), dictionary);
  EXPECT_EQ(entries(), std::vector<std::string>{"Info.plist"}) << "nothing else is left";
}

TEST_F(PropertyListFile, KeepsItsModeAndOwnerThroughARewrite) {
  support::writeFile(path_, xmlPropertyList({{"old", 1}}));
  ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
  const bool isRoot = geteuid() == 0;  // only root can give a file away
  ASSERT_EQ(chown(path_.c_str(), isRoot ? 1234 : geteuid(), isRoot ? 2345 : getegid()), 0);
  struct stat before;
  ASSERT_EQ(stat(path_.c_str(), &before), 0);
  ASSERT_TRUE(writeDictionaryToFile({{"new", 2}}, path_));
  struct stat after;
  ASSERT_EQ(stat(path_.c_str(), &after), 0);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(after.st_ino, before.st_ino) << "it was written in place";
}

TEST_F(PropertyListFile, IsWrittenBehindASymbolicLink) {
  fs::create_directories(folder_ + "/elsewhere");
  support::writeFile(folder_ + "/elsewhere/real.plist", xmlPropertyList({{"old", 1}}));
  fs::create_symlink("elsewhere/real.plist", folder_ + "/middle");
  fs::create_symlink(folder_ + "/middle", path_);
  ASSERT_TRUE(writeDictionaryToFile({{"new", 2}}, path_));
  EXPECT_TRUE(fs::is_symlink(path_));
  EXPECT_TRUE(fs::is_symlink(folder_ + "/middle"));
  EXPECT_EQ(dictionaryWithContentsOfFile(folder_ + "/elsewhere/real.plist"),
            (PropertyListDictionary{{"new", 2}}));
}

TEST_F(PropertyListFile, IsNotWrittenThroughLinksThatGoRound) {
  fs::create_symlink("b", folder_ + "/a");
  fs::create_symlink("a", folder_ + "/b");
  EXPECT_FALSE(writeDictionaryToFile({{"new", 2}}, folder_ + "/a"));
  EXPECT_TRUE(fs::is_symlink(folder_ + "/a"));
}

TEST_F(PropertyListFile, IsWholeAfterAWriteOnAFullDisk) {
  ASSERT_TRUE(writeDictionaryToFile({{"old", 1}}, path_));
  const std::string before = support::readFile(path_);
  auto writer = support::ChildProcess::fork([this] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {64, 64};
    setrlimit(RLIMIT_FSIZE, &limit);
    return writeDictionaryToFile({{"old", std::string(10'000, 'x')}}, path_) ? 0 : 1;
  });
  EXPECT_EQ(writer.wait(), 1) << "the failure is reported";
  EXPECT_EQ(support::readFile(path_), before);
  EXPECT_EQ(entries().size(), 1U) << "what was begun is cleared away";
}

TEST_F(PropertyListFile, IsNotWrittenWhereThereIsNoFolder) {
  support::writeFile(folder_ + "/file", "x");
  EXPECT_FALSE(writeDictionaryToFile({}, folder_ + "/file/Info.plist"));
  EXPECT_FALSE(writeDictionaryToFile({}, folder_ + "/missing/Info.plist"));
  EXPECT_FALSE(writeDictionaryToFile({}, folder_)) << "a folder is no file";
  EXPECT_FALSE(fs::exists(folder_ + "/missing")) << "nothing is made that was not asked for";
}

TEST_F(PropertyListFile, ReadsAsNothingWhenItIsNone) {
  EXPECT_FALSE(dictionaryWithContentsOfFile(folder_ + "/missing.plist"));
  EXPECT_FALSE(dictionaryWithContentsOfFile(folder_));
  EXPECT_FALSE(dictionaryWithContentsOfFile(""));
  support::writeFile(path_, "<plist><dict><key>cut sho");
  EXPECT_FALSE(dictionaryWithContentsOfFile(path_));
  support::writeFile(path_, "<plist version=\"1.0\"><array/></plist>");
  EXPECT_FALSE(dictionaryWithContentsOfFile(path_)) << "the top value is no dictionary";
  const std::string pipe = folder_ + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_FALSE(dictionaryWithContentsOfFile(pipe)) << "and a pipe without writer does not hang";
}

TEST_F(PropertyListFile, IsAlwaysWholeForAReaderBesideAWriter) {
  ASSERT_TRUE(writeDictionaryToFile({{"n", 0}}, path_));
  auto writer = support::ChildProcess::fork([this] {
    for (int i = 1; i <= 400; ++i) {
      const std::string padding(static_cast<std::size_t>(i) * 40, 'x');
      if (!writeDictionaryToFile({{"n", i}, {"padding", padding}}, path_)) return 1;
    }
    return 0;
  });
  int broken = 0;
  std::int64_t last = 0;
  while (last < 400) {
    const auto dictionary = dictionaryWithContentsOfFile(path_);
    broken += dictionary ? 0 : 1;
    if (!dictionary) break;
    last = std::get<std::int64_t>(dictionary->at("n").variant());
  }
  EXPECT_EQ(broken, 0);
  EXPECT_EQ(writer.wait(), 0);
}

TEST_F(PropertyListFile, ClearsAwayWhatAKilledWriterLeft) {
  ASSERT_TRUE(writeDictionaryToFile({{"old", 1}}, path_));
  auto ended = support::ChildProcess::fork([] { return 0; });
  ended.wait();
  support::writeFile(folder_ + "/.Info.plist.partial-" + std::to_string(ended.pid()) + "-1",
                     "half");
  support::writeFile(folder_ + "/.Info.plist.partial-" + std::to_string(getppid()) + "-1",
                     "at work");
  ASSERT_TRUE(writeDictionaryToFile({{"new", 2}}, path_));
  EXPECT_EQ(entries().size(), 2U) << "of a process that is still at work it stays";
}

TEST_F(PropertyListFile, ReadsRealsAlikeInALocaleWithADecimalComma) {
  const std::string folder = support::sandbox() + "/locales";
  fs::create_directory(folder);
  const std::string command =
      "localedef -c -i de_DE -f UTF-8 " + folder + "/de_DE.UTF-8 >/dev/null 2>&1";
  static_cast<void>(std::system(command.c_str()));
  setenv("LOCPATH", folder.c_str(), 1);
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "no such locale here";
  ASSERT_EQ(std::strtod("1,5", nullptr), 1.5);
  EXPECT_EQ(clientcomm::propertyListFromBytes("<plist><real>1.5</real></plist>"),
            PropertyListValue(1.5));
  EXPECT_NE(xmlPropertyList({{"key", 1.5}}).find("<real>1.5</real>"), std::string::npos);
  EXPECT_EQ(std::strtod("1,5", nullptr), 1.5) << "the host's locale is as it was";
}

// A throw through expat's C code would end the process.
TEST_F(PropertyListFile, LeavesTheProcessWholeWhereMemoryRunsOut) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own memory cannot be limited";
#endif
  const std::string xml =
      "<plist><string>" + std::string(std::size_t{4} << 20U, 'x') + "</string></plist>";
  // From too little memory for expat's copy of the text, over too little for that of the value, to
  // enough for both.
  auto reader = support::ChildProcess::fork([&xml] {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t size = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    std::optional<PropertyListValue> list;
    for (rlim_t room = 0; !list && room <= 64; ++room) {
      const rlimit limit = {size + (room << 20U), RLIM_INFINITY};
      if (setrlimit(RLIMIT_AS, &limit) != 0) return 2;
      try {
        list = propertyListFromBytes(xml);
      } catch (const std::bad_alloc&) {
        list.reset();
      }
    }
    return list ? 0 : 1;
  });
  EXPECT_EQ(reader.wait(), 0);
}

TEST_F(PropertyListFile, IsNotReadWhereItIsLargerThanAnySettings) {
  support::writeFile(path_, "");
  fs::resize_file(path_, std::uintmax_t{1} << 40U);
  EXPECT_FALSE(dictionaryWithContentsOfFile(path_));
}

}  // namespace
