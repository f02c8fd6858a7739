#include "ClientComm/platform/file_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::contentsOfDirectoryAtPath;
using clientcomm::copyPath;
using clientcomm::createDirectoryAtPath;
using clientcomm::Error;
using clientcomm::fileExistsAtPath;
using clientcomm::lastPathComponent;
using clientcomm::pathExtension;
using clientcomm::removeItemAtPath;
using clientcomm::Status;
using clientcomm::stringByAppendingPathComponent;
using clientcomm::stringByExpandingTildeInPath;
using support::ChildProcess;
using support::readFile;
using support::writeFile;

constexpr uid_t kNobody = 65534;

std::int64_t codeOf(const std::optional<Error>& error) {
  if (!error) return 0;
  EXPECT_EQ(error->domain, clientcomm::kFileErrorDomain);
  return error->code;
}

int codeOf(const Status& status) { return status.code(); }

// Everything that a copy keeps of an entry, as text.
std::string describe(const fs::path& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return "missing";
  std::string text = std::to_string(status.st_mode) + " " + std::to_string(status.st_mtim.tv_sec) +
                     "." + std::to_string(status.st_mtim.tv_nsec);
  if (S_ISLNK(status.st_mode)) text += " -> " + fs::read_symlink(path).string();
  if (S_ISREG(status.st_mode)) text += " = " + readFile(path);
  return text;
}

std::map<std::string, std::string> describeTree(const fs::path& root) {
  std::map<std::string, std::string> entries = {{"", describe(root)}};
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    entries[fs::relative(entry.path(), root)] = describe(entry.path());
  }
  return entries;
}

void setTime(const std::string& path, time_t seconds, long nanoseconds) {
  const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

// Runs `body` as a user who is not above permissions, if this process is run by one who is.
int runUnprivileged(const std::function<int()>& body) {
  return ChildProcess::fork([&body] {
           if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) return 99;
           return body();
         })
      .wait();
}

// Makes the user of `runUnprivileged` the owner.
void giveToUnprivileged(const std::string& path) {
  const bool isRoot = geteuid() == 0;
  ASSERT_EQ(chown(path.c_str(), isRoot ? kNobody : geteuid(), isRoot ? kNobody : getegid()), 0);
}

// A process ID that no process has.
pid_t endedProcess() {
  auto process = ChildProcess::fork([] { return 0; });
  process.wait();
  return process.pid();
}

class FileManager : public testing::Test {
 protected:
  const std::string root_ =
      support::sandbox() + "/" + testing::UnitTest::GetInstance()->current_test_info()->name();

  void SetUp() override { fs::create_directories(root_); }
  std::string at(const std::string& name) const { return root_ + "/" + name; }

  // Opens the way from the outermost folder for everybody.
  void letEverybodyIn() const {
    ASSERT_EQ(chmod(support::sandbox().c_str(), 0755), 0);
    ASSERT_EQ(chmod(root_.c_str(), 0777), 0);
  }

  std::string makeBundle(const std::string& name) const {
    const std::string bundle = at(name);
    writeFile(bundle + "/Contents/Info.plist", "info");
    writeFile(bundle + "/Contents/Linux/Helper", std::string(300'000, 'x'));
    writeFile(bundle + "/Contents/Resources/en.lproj/InfoPlist.strings", "");
    writeFile(bundle + "/Contents/Resources/\xFF\xFE not utf8", "bytes");
    fs::create_directories(bundle + "/Contents/Frameworks/empty");
    fs::create_symlink("../Linux/Helper", bundle + "/Contents/Resources/link");
    fs::create_symlink("/nonexistent/target", bundle + "/Contents/Resources/dangling");
    chmod((bundle + "/Contents/Linux/Helper").c_str(), 0751);
    chmod((bundle + "/Contents/Info.plist").c_str(), 0444);
    chmod((bundle + "/Contents/Frameworks").c_str(), 0555);
    setTime(bundle + "/Contents/Linux/Helper", 1'234'567'890, 123'456'789);
    setTime(bundle + "/Contents/Resources/link", 1'000'000'000, 987'654'321);
    setTime(bundle + "/Contents/Resources", 1'100'000'000, 1);
    setTime(bundle, 1'200'000'000, 999'999'999);
    return bundle;
  }
};

// --- Copying ---

TEST_F(FileManager, CopiesATreeWithItsModesTimesAndLinks) {
  const std::string source = makeBundle("Helper.app");
  const auto before = describeTree(source);
  EXPECT_EQ(codeOf(copyPath(source, at("Copy.app"))), 0);
  EXPECT_EQ(describeTree(at("Copy.app")), before);
  EXPECT_EQ(describeTree(source), before) << "the source is as it was";
  EXPECT_EQ(contentsOfDirectoryAtPath(root_).size(), 2U) << "and nothing is left beside the copy";
}

TEST_F(FileManager, CopiesWhateverTheUmask) {
  const std::string source = makeBundle("Helper.app");
  umask(0777);
  EXPECT_EQ(codeOf(copyPath(source, at("Copy.app"))), 0);
  umask(022);
  EXPECT_EQ(describeTree(at("Copy.app")), describeTree(source));
}

TEST_F(FileManager, CopiesASingleFileAndASingleLink) {
  writeFile(at("file"), "text");
  setTime(at("file"), 1'234'567'890, 5);
  fs::create_symlink("file", at("link"));
  EXPECT_EQ(codeOf(copyPath(at("file"), at("file copy"))), 0);
  EXPECT_EQ(codeOf(copyPath(at("link"), at("link copy"))), 0);
  EXPECT_EQ(describe(at("file copy")), describe(at("file")));
  EXPECT_EQ(fs::read_symlink(at("link copy")), "file");
}

TEST_F(FileManager, CopiesFilesOfEverySize) {
  for (const std::size_t size : {0U, 1U, 4095U, 4096U, 65'536U, 65'537U, 5'000'000U}) {
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 % 251);
    const std::string source = at(std::to_string(size));
    writeFile(source, content);
    EXPECT_EQ(codeOf(copyPath(source, source + " copy")), 0);
    EXPECT_EQ(readFile(source + " copy"), content);
  }
}

TEST_F(FileManager, CopiesFilesOfWhichTheSystemGivesNoSize) {
  EXPECT_EQ(codeOf(copyPath("/proc/self/cmdline", at("cmdline"))), 0);
  EXPECT_EQ(readFile(at("cmdline")), readFile("/proc/self/cmdline"));
  EXPECT_FALSE(readFile(at("cmdline")).empty());
}

TEST_F(FileManager, RefusesACopyWhereAnythingExists) {
  writeFile(at("source"), "new");
  writeFile(at("file"), "old");
  fs::create_directory(at("folder"));
  fs::create_symlink("/nonexistent", at("dangling"));
  for (const char* name : {"file", "folder", "dangling", "source", "folder/"}) {
    EXPECT_EQ(codeOf(copyPath(at("source"), at(name))), EEXIST) << name;
  }
  EXPECT_EQ(readFile(at("file")), "old");
  EXPECT_EQ(contentsOfDirectoryAtPath(root_).size(), 4U);
  EXPECT_EQ(codeOf(copyPath(at("source"), "/")), EEXIST);
}

TEST_F(FileManager, LooksAtTheDestinationBeforeItCopies) {
  writeFile(at("file"), "old");
  EXPECT_EQ(codeOf(copyPath(at("missing"), at("file"))), EEXIST);
  EXPECT_EQ(readFile(at("file")), "old");
}

TEST_F(FileManager, ReportsACopyThatCannotBeMade) {
  writeFile(at("file"), "x");
  EXPECT_EQ(codeOf(copyPath(at("missing"), at("copy"))), ENOENT);
  EXPECT_EQ(codeOf(copyPath(at("file"), at("missing/copy"))), ENOENT);
  EXPECT_EQ(codeOf(copyPath(at("file"), at("file/copy"))), ENOTDIR);
  EXPECT_EQ(codeOf(copyPath(at("file/below"), at("copy"))), ENOTDIR);
  EXPECT_NE(codeOf(copyPath("", at("copy"))), 0);
  EXPECT_NE(codeOf(copyPath(at("file"), "")), 0);
  EXPECT_EQ(contentsOfDirectoryAtPath(root_), std::vector<std::string>{"file"});
}

TEST_F(FileManager, RefusesToCopyWhatHasNoContents) {
  fs::create_directory(at("tree"));
  writeFile(at("tree/file"), "x");
  ASSERT_EQ(mkfifo(at("tree/pipe").c_str(), 0600), 0);
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("copy"))), EINVAL);
  EXPECT_EQ(codeOf(copyPath(at("tree/pipe"), at("copy"))), EINVAL)
      << "without waiting for a writer";
  EXPECT_EQ(codeOf(copyPath("/dev/null", at("copy"))), EINVAL);
  EXPECT_EQ(contentsOfDirectoryAtPath(root_), std::vector<std::string>{"tree"});
}

TEST_F(FileManager, RefusesToCopyATreeIntoItself) {
  writeFile(at("tree/sub/file"), "x");
  EXPECT_EQ(codeOf(copyPath(at("tree"), at("tree/sub/copy"))), EINVAL);
  EXPECT_EQ(contentsOfDirectoryAtPath(at("tree/sub")), std::vector<std::string>{"file"});
}

TEST_F(FileManager, LeavesNothingOfACopyThatFailsOnAFullDisk) {
  const std::string source = makeBundle("Helper.app");
  auto copier = ChildProcess::fork([&source, this] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100'000, 100'000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return codeOf(copyPath(source, at("Copy.app")));
  });
  EXPECT_EQ(copier.wait(), EFBIG);
  EXPECT_EQ(contentsOfDirectoryAtPath(root_), std::vector<std::string>{"Helper.app"});
}

TEST_F(FileManager, ReportsACopyIntoAFolderThatCannotBeWritten) {
  const std::string source = makeBundle("Helper.app");
  letEverybodyIn();
  fs::create_directory(at("readonly"));
  ASSERT_EQ(chmod(at("readonly").c_str(), 0555), 0);
  EXPECT_EQ(runUnprivileged([&] { return codeOf(copyPath(source, at("readonly/Copy.app"))); }),
            EACCES);
  EXPECT_TRUE(contentsOfDirectoryAtPath(at("readonly")).empty());
}

TEST_F(FileManager, DoesNotLendAnothersRightsByACopy) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make another's file";
  writeFile(at("program"), "x");
  ASSERT_EQ(chmod(at("program").c_str(), 04755), 0);
  letEverybodyIn();
  EXPECT_EQ(runUnprivileged([this] { return codeOf(copyPath(at("program"), at("copy"))); }), 0);
  struct stat status;
  ASSERT_EQ(stat(at("copy").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST_F(FileManager, CopiesInASandboxThatForbidsToRenameWithoutReplacing) {
  const std::string source = makeBundle("Helper.app");
  for (const int error : {EPERM, ENOSYS}) {
    const std::string copy = at("Copy" + std::to_string(error));
    auto process = ChildProcess::fork([&] {
      support::refuseSystemCall(__NR_renameat2, error);
      if (codeOf(copyPath(source, copy)) != 0) return 1;
      return codeOf(copyPath(source, copy)) == EEXIST ? 0 : 2;
    });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_EQ(describeTree(copy), describeTree(source));
  }
}

TEST_F(FileManager, LetsExactlyOneOfManyCopiersWin) {
  const std::string source = makeBundle("Helper.app");
  std::vector<ChildProcess> copiers;
  for (int i = 0; i < 8; ++i) {
    copiers.push_back(
        ChildProcess::fork([&source, this] { return codeOf(copyPath(source, at("Copy.app"))); }));
  }
  std::vector<int> results;
  for (ChildProcess& copier : copiers) results.push_back(copier.wait());
  EXPECT_EQ(std::count(results.begin(), results.end(), 0), 1);
  EXPECT_EQ(std::count(results.begin(), results.end(), EEXIST), 7);
  EXPECT_EQ(describeTree(at("Copy.app")), describeTree(source));
  EXPECT_EQ(contentsOfDirectoryAtPath(root_).size(), 2U);
}

TEST_F(FileManager, NeverShowsACopyHalfDone) {
  const std::string source = at("tree");
  for (int i = 0; i < 200; ++i)
    writeFile(source + "/" + std::to_string(i), std::string(20'000, 'x'));
  auto copier =
      ChildProcess::fork([&source, this] { return codeOf(copyPath(source, at("copy"))); });
  // Without a pause: the copy would be complete by the end of it.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!fileExistsAtPath(at("copy"))) ASSERT_LT(std::chrono::steady_clock::now(), limit);
  EXPECT_EQ(contentsOfDirectoryAtPath(at("copy")).size(), 200U);
  EXPECT_EQ(copier.wait(), 0);
}

TEST_F(FileManager, ClearsAwayWhatAKilledCopierLeft) {
  const std::string source = at("tree");
  writeFile(source + "/small", "x");
  writeFile(source + "/large", "");
  fs::resize_file(source + "/large",
                  std::uintmax_t{1} << 30U);  // takes long enough to be cut short
  auto copier =
      ChildProcess::fork([&source, this] { return copyPath(source, at("copy")).isOk() ? 0 : 1; });
  const std::string prefix = ".copy.partial-" + std::to_string(copier.pid()) + "-";
  std::string partial;
  ASSERT_TRUE(support::waitUntil([&] {
    for (const std::string& name : contentsOfDirectoryAtPath(root_)) {
      if (name.starts_with(prefix)) partial = at(name);
    }
    return !partial.empty();
  }));
  copier.signal(SIGKILL);
  ASSERT_EQ(copier.wait(), 128 + SIGKILL);
  ASSERT_TRUE(fileExistsAtPath(partial)) << "the copier was killed half-way";
  ASSERT_FALSE(fileExistsAtPath(at("copy")));
  fs::remove(source + "/large");
  EXPECT_EQ(codeOf(copyPath(source, at("copy"))), 0);
  EXPECT_FALSE(fileExistsAtPath(partial));
  EXPECT_EQ(contentsOfDirectoryAtPath(at("copy")), std::vector<std::string>{"small"});
}

TEST_F(FileManager, LeavesAloneWhatOnlyResemblesAnAbandonedCopy) {
  writeFile(at("source"), "x");
  const std::string ended = std::to_string(endedProcess());
  const std::vector<std::string> strangers = {".copy.partial-" + std::to_string(getppid()) + "-1",
                                              ".copy.partial-",
                                              ".copy.partial-" + ended,
                                              ".copy.partial-x" + ended + "-1",
                                              ".copy.partial--" + ended + "-1",
                                              ".copy.partial-0-1",
                                              ".other.partial-" + ended + "-1",
                                              "copy.partial-" + ended + "-1",
                                              ".copy.partial-99999999999999999999-1"};
  for (const std::string& name : strangers) writeFile(at(name), "kept");
  EXPECT_EQ(codeOf(copyPath(at("source"), at("copy"))), 0);
  for (const std::string& name : strangers) EXPECT_EQ(readFile(at(name)), "kept") << name;
}

TEST_F(FileManager, ClearsUnfinishedCopiesOfRunningProcessesOnRequest) {
  for (const std::string& left : {".copy.partial-" + std::to_string(getppid()) + "-1",
                                  ".copy.partial-" + std::to_string(endedProcess()) + "-1"}) {
    writeFile(at(left) + "/file", "left");
  }
  for (const std::string other : {".copy.partial-", ".copy.partial-x1-1", ".other.partial-1-1"}) {
    writeFile(at(other), "other");
  }
  EXPECT_TRUE(clientcomm::removeUnfinishedCopies(at("copy")).isOk());
  EXPECT_EQ(contentsOfDirectoryAtPath(root_).size(), 3U);
  EXPECT_EQ(codeOf(clientcomm::removeUnfinishedCopies(at("missing/copy"))), ENOENT);
}

TEST_F(FileManager, CopiesUnderTheLongestName) {
  writeFile(at("source"), "x");
  const std::string name(255, 'n');
  EXPECT_EQ(codeOf(copyPath(at("source"), at(name))), 0);
  EXPECT_EQ(readFile(at(name)), "x");
  EXPECT_EQ(codeOf(copyPath(at("source"), at(name + "n"))), ENAMETOOLONG);
}

TEST_F(FileManager, LeavesNoDescriptorOpen) {
  const std::string source = makeBundle("Helper.app");
  const int before = support::openDescriptorCount();
  EXPECT_EQ(codeOf(copyPath(source, at("Copy.app"))), 0);
  EXPECT_EQ(codeOf(copyPath(source, at("Copy.app"))), EEXIST);
  EXPECT_EQ(codeOf(removeItemAtPath(at("Copy.app"))), 0);
  EXPECT_EQ(support::openDescriptorCount(), before);
}

// --- Removing ---

TEST_F(FileManager, RemovesAFileALinkAndATree) {
  writeFile(at("file"), "x");
  writeFile(at("target/file"), "kept");
  fs::create_symlink("target", at("link"));
  const std::string bundle = makeBundle("Helper.app");
  EXPECT_EQ(codeOf(removeItemAtPath(at("file"))), 0);
  EXPECT_EQ(codeOf(removeItemAtPath(at("link/"))), 0) << "a link is removed, not followed";
  EXPECT_EQ(codeOf(removeItemAtPath(bundle + "/")), 0);
  EXPECT_EQ(contentsOfDirectoryAtPath(root_), std::vector<std::string>{"target"});
  EXPECT_EQ(readFile(at("target/file")), "kept");
}

TEST_F(FileManager, FollowsNoLinkInATreeThatItRemoves) {
  writeFile(at("outside/Info.plist"), "kept");
  writeFile(at("outside/sub/file"), "kept");
  fs::create_directory(at("Helper.app"));
  fs::create_symlink("../outside", at("Helper.app/Contents"));
  fs::create_symlink(at("outside/sub"), at("Helper.app/sub"));
  EXPECT_EQ(codeOf(removeItemAtPath(at("Helper.app"))), 0);
  EXPECT_FALSE(fileExistsAtPath(at("Helper.app")));
  EXPECT_EQ(readFile(at("outside/Info.plist")), "kept");
  EXPECT_EQ(readFile(at("outside/sub/file")), "kept");
}

TEST_F(FileManager, RemovesReadOnlyFoldersOfItsOwn) {
  writeFile(at("tree/a/b/file"), "x");
  writeFile(at("tree/Contents/Info.plist"), "x");
  fs::create_directories(at("tree/closed"));
  letEverybodyIn();
  for (const char* name :
       {"tree/a/b/file", "tree/a/b", "tree/a", "tree/closed", "tree/Contents", "tree"}) {
    giveToUnprivileged(at(name));
  }
  for (const char* name : {"tree/a/b", "tree/a", "tree/Contents", "tree"})
    chmod(at(name).c_str(), 0555);
  chmod(at("tree/closed").c_str(), 0);
  EXPECT_EQ(runUnprivileged([this] { return codeOf(removeItemAtPath(at("tree"))); }), 0);
  EXPECT_FALSE(fileExistsAtPath(at("tree")));
}

TEST_F(FileManager, RemovesWhatItCanAndReportsTheRest) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make another's folder";
  writeFile(at("tree/theirs/file"), "x");
  writeFile(at("tree/mine/file"), "x");
  writeFile(at("tree/file"), "x");
  letEverybodyIn();
  ASSERT_EQ(chmod(at("tree").c_str(), 0777), 0);
  ASSERT_EQ(chmod(at("tree/mine").c_str(), 0777), 0);
  EXPECT_EQ(runUnprivileged([this] { return codeOf(removeItemAtPath(at("tree"))); }), EACCES);
  EXPECT_EQ(contentsOfDirectoryAtPath(at("tree")), std::vector<std::string>{"theirs"});
}

TEST_F(FileManager, LeavesTheModeOfTheFolderAroundWhatItRemoves) {
  writeFile(at("closed/file"), "x");
  letEverybodyIn();
  giveToUnprivileged(at("closed"));
  ASSERT_EQ(chmod(at("closed").c_str(), 0555), 0);
  EXPECT_EQ(runUnprivileged([this] { return codeOf(removeItemAtPath(at("closed/file"))); }),
            EACCES);
  EXPECT_EQ(fs::status(at("closed")).permissions(), fs::perms(0555));
}

TEST_F(FileManager, RemovesTogetherWithOthers) {
  const std::string tree = at("tree");
  for (int i = 0; i < 1500; ++i)
    writeFile(tree + "/" + std::to_string(i % 50) + "/" + std::to_string(i), "x");
  std::vector<ChildProcess> removers;
  for (int i = 0; i < 4; ++i) {
    removers.push_back(ChildProcess::fork([&tree] { return codeOf(removeItemAtPath(tree)); }));
  }
  for (ChildProcess& remover : removers) EXPECT_EQ(remover.wait(), 0);
  EXPECT_FALSE(fileExistsAtPath(tree));
}

TEST_F(FileManager, HoldsWhatIsGoneAlreadyForRemoved) {
  EXPECT_EQ(codeOf(removeItemAtPath(at("missing"))), 0);
  writeFile(at("file"), "x");
  EXPECT_EQ(codeOf(removeItemAtPath(at("file/below"))), ENOTDIR);
}

TEST_F(FileManager, RemovesARunningProgramWithoutMovingIt) {
  fs::create_directories(at("Helper.app/Contents/Linux"));
  const std::string program = at("Helper.app/Contents/Linux/Helper");
  fs::copy_file("/bin/cat", program);
  auto process = ChildProcess::spawn({program});
  const std::string link = "/proc/" + std::to_string(process.pid()) + "/exe";
  ASSERT_TRUE(support::waitUntil([&] { return fs::read_symlink(link) == program; }));
  EXPECT_EQ(codeOf(removeItemAtPath(at("Helper.app"))), 0);
  EXPECT_EQ(fs::read_symlink(link), program + " (deleted)");
  process.signal(SIGTERM);
  EXPECT_EQ(process.wait(), 128 + SIGTERM);
}

// --- Folders ---

TEST_F(FileManager, MakesAFolderWithThoseAboveIt) {
  EXPECT_EQ(codeOf(createDirectoryAtPath(at("a/b/c//d/"))), 0);
  EXPECT_TRUE(fs::is_directory(at("a/b/c/d")));
  EXPECT_EQ(codeOf(createDirectoryAtPath(at("a/b"))), 0) << "it exists already";
  EXPECT_EQ(codeOf(createDirectoryAtPath("/")), 0);
  fs::create_symlink("a", at("link"));
  EXPECT_EQ(codeOf(createDirectoryAtPath(at("link/b"))), 0);
}

TEST_F(FileManager, ReportsAFolderThatCannotBeMade) {
  writeFile(at("file"), "x");
  fs::create_symlink("nowhere", at("dangling"));
  EXPECT_EQ(codeOf(createDirectoryAtPath(at("file"))), EEXIST);
  EXPECT_EQ(codeOf(createDirectoryAtPath(at("file/a/b"))), ENOTDIR);
  EXPECT_EQ(codeOf(createDirectoryAtPath(at("dangling"))), EEXIST);
  EXPECT_EQ(codeOf(createDirectoryAtPath("")), ENOENT);
  EXPECT_NE(codeOf(createDirectoryAtPath("/proc/none/such")), 0);
}

TEST_F(FileManager, MakesTheSameFolderFromManyProcesses) {
  std::vector<ChildProcess> makers;
  for (int i = 0; i < 6; ++i) {
    makers.push_back(ChildProcess::fork([this] {
      for (int n = 0; n < 50; ++n) {
        if (createDirectoryAtPath(at(std::to_string(n) + "/x/y/z"))) return 1;
      }
      return 0;
    }));
  }
  for (ChildProcess& maker : makers) EXPECT_EQ(maker.wait(), 0);
}

TEST_F(FileManager, ListsTheEntriesOfAFolder) {
  for (const char* name : {"a", ".hidden", "\xFF bytes"}) writeFile(at(name), "");
  auto names = contentsOfDirectoryAtPath(root_);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".hidden", "a", "\xFF bytes"}));
  EXPECT_TRUE(contentsOfDirectoryAtPath(at("a")).empty());
  EXPECT_TRUE(contentsOfDirectoryAtPath(at("missing")).empty());
}

TEST_F(FileManager, KnowsWhatExists) {
  writeFile(at("file"), "");
  fs::create_symlink("file", at("link"));
  fs::create_symlink("missing", at("dangling"));
  EXPECT_TRUE(fileExistsAtPath(at("file")));
  EXPECT_TRUE(fileExistsAtPath(root_));
  EXPECT_TRUE(fileExistsAtPath(at("link")));
  EXPECT_FALSE(fileExistsAtPath(at("dangling"))) << "a link counts by its target";
  EXPECT_FALSE(fileExistsAtPath(at("file/below")));
  EXPECT_FALSE(fileExistsAtPath(""));
}

// --- Paths ---

TEST(FilePath, ExpandsALeadingTildeToTheHomeFolder) {
  const std::string home = std::getenv("HOME");
  EXPECT_EQ(stringByExpandingTildeInPath("~"), home);
  EXPECT_EQ(stringByExpandingTildeInPath("~/Applications"), home + "/Applications");
  for (const char* path : {"", "/a/~/b", "a~", "~other/x", "./~", "/~"}) {
    EXPECT_EQ(stringByExpandingTildeInPath(path), path);
  }
}

TEST(FilePath, JoinsWithExactlyOneSlash) {
  EXPECT_EQ(stringByAppendingPathComponent("/a", "b"), "/a/b");
  EXPECT_EQ(stringByAppendingPathComponent("/a/", "b"), "/a/b");
  EXPECT_EQ(stringByAppendingPathComponent("/a//", "/b/c"), "/a/b/c");
  EXPECT_EQ(stringByAppendingPathComponent("/", "b"), "/b");
  EXPECT_EQ(stringByAppendingPathComponent("", "b"), "b");
  EXPECT_EQ(stringByAppendingPathComponent("/a", ""), "/a");
}

TEST(FilePath, JoinsWithoutRepeatedOrTrailingSlashes) {
  EXPECT_EQ(stringByAppendingPathComponent("/a//b", "c"), "/a/b/c");
  EXPECT_EQ(stringByAppendingPathComponent("//a///b/", "c//d//"), "/a/b/c/d");
  EXPECT_EQ(stringByAppendingPathComponent("/a//", ""), "/a");
  EXPECT_EQ(stringByAppendingPathComponent("a//b", ""), "a/b");
  EXPECT_EQ(stringByAppendingPathComponent("//", "//"), "/");
  EXPECT_EQ(stringByAppendingPathComponent("", "b//"), "b");
  EXPECT_EQ(stringByAppendingPathComponent("", ""), "");
  EXPECT_EQ(stringByAppendingPathComponent("/a/./..", "b"), "/a/./../b");
}

TEST(FilePath, GivesTheLastComponent) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/b.app", "b.app"}, {"/a/b.app/", "b.app"}, {"b", "b"}, {"/", ""}, {"", ""},
      {"/a//", "a"}};
  for (const auto& [path, expected] : cases) EXPECT_EQ(lastPathComponent(path), expected) << path;
}

TEST(FilePath, GivesTheExtension) {
  const std::pair<const char*, const char*> cases[] = {{"/a/Helper.app", "app"},
                                                       {"Tool.APP", "APP"},
                                                       {"/a/Helper.app/", "app"},
                                                       {"a.tar.gz", "gz"},
                                                       {".plist", ""},
                                                       {"..plist", "plist"},
                                                       {"/a.b/c", ""},
                                                       {"a.", ""},
                                                       {"", ""},
                                                       {"/", ""},
                                                       {"Notes", ""}};
  for (const auto& [path, expected] : cases) EXPECT_EQ(pathExtension(path), expected) << path;
}

}  // namespace
