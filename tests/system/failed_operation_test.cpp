#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/local_file.h"
#include "ClientComm/platform/linux/patient_reader.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/atomic_file.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/recovery_copy.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/posix/settings_file.h"
#include "ClientComm/platform/removed_bundle.h"
#include "ClientComm/platform/status.h"
#include "ClientComm/platform/workspace.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

/// What a failed operation reports: domain, code, path and call.
namespace {

namespace fs = std::filesystem;
using clientcomm::kFileErrorDomain;
using clientcomm::ScopedFd;
using clientcomm::Status;

constexpr int kNotAllowed = 77;

struct Failure {
  std::string_view domain;
  int code;
  std::string_view call;
  std::string path;
};

void expectFailure(const Status& status, const Failure& expected) {
  EXPECT_FALSE(status.isOk());
  EXPECT_EQ(status.domain(), expected.domain);
  EXPECT_EQ(status.code(), expected.code);
  EXPECT_EQ(status.call(), expected.call);
  EXPECT_EQ(status.path(), expected.path);
}

std::string at(const std::string& name) { return support::sandbox() + "/" + name; }

ScopedFd openSandbox() {
  return ScopedFd(open(support::sandbox().c_str(), clientcomm::kDirectoryFlags));
}

/// Files grow to at most `size` bytes while it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t size) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{size, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_ = {};
};

TEST(FailedOperation, TellsWhichFolderOfAFileToReplaceIsMissing) {
  expectFailure(clientcomm::replaceFile(at("none/file"), "text", 0600),
                {kFileErrorDomain, ENOENT, "open", at("none")});
}

TEST(FailedOperation, TellsThatAFileToReplaceIsAFolder) {
  fs::create_directory(at("folder"));
  expectFailure(clientcomm::replaceFile(at("folder"), "text", 0600),
                {kFileErrorDomain, EINVAL, "isRegularFile", at("folder")});
}

TEST(FailedOperation, TellsThatAFileCannotBeWritten) {
  support::writeFile(at("file"), "old");
  const FileSizeLimit limit(4);
  expectFailure(clientcomm::replaceFile(at("file"), "longer text", 0600),
                {kFileErrorDomain, EFBIG, "write", at("file")});
}

TEST(FailedOperation, TellsWhichRuntimeFileCannotBeRead) {
  const ScopedFd folder = openSandbox();
  std::string bytes;
  expectFailure(clientcomm::readRuntimeFile(folder.get(), "none", bytes),
                {kFileErrorDomain, ENOENT, "openat", "none"});
  fs::create_directory(at("folder"));
  expectFailure(clientcomm::readRuntimeFile(folder.get(), "folder", bytes),
                {kFileErrorDomain, EINVAL, "isRegularFile", "folder"});
  fs::create_symlink("none", at("link"));
  expectFailure(clientcomm::readRuntimeFile(folder.get(), "link", bytes),
                {kFileErrorDomain, ELOOP, "openat", "link"});
}

TEST(FailedOperation, TellsWhichRuntimeFileCannotBePutInPlace) {
  const ScopedFd folder = openSandbox();
  fs::create_directory(at("folder"));
  expectFailure(clientcomm::replaceRuntimeFile(folder.get(), "folder", "text"),
                {kFileErrorDomain, EISDIR, "renameat", "folder"});
  support::writeFile(at("file"), "old");
  expectFailure(clientcomm::createRuntimeFile(folder.get(), "file", "text"),
                {kFileErrorDomain, EEXIST, "renameat2", "file"});
  const FileSizeLimit limit(2);
  expectFailure(clientcomm::replaceRuntimeFile(folder.get(), "file", "text"),
                {kFileErrorDomain, EFBIG, "write", "file"});
}

TEST(FailedOperation, TellsWhyALocalFileCannotBeRead) {
  support::writeFile(at("file"), "text");
  const ScopedFd file(open(at("file").c_str(), O_PATH | O_CLOEXEC));
  const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  std::string bytes;
  expectFailure(clientcomm::readLocalFile(file.get(), 3, bytes),
                {kFileErrorDomain, EFBIG, "fstat", path});
  expectFailure(clientcomm::readLocalFile(-1, 3, bytes),
                {kFileErrorDomain, EBADF, "fstat", "/proc/self/fd/-1"});
}

TEST(FailedOperation, TellsWhatAChildProcessCouldNotRead) {
  std::string bytes;
  expectFailure(clientcomm::readByChildProcess(at("none"), 100, bytes),
                {kFileErrorDomain, EIO, "readByChildProcess", at("none")});
}

TEST(FailedOperation, TellsWhichFolderCannotBeMade) {
  support::writeFile(at("file"), "text");
  expectFailure(clientcomm::makeDirectoryAtPath(at("file/a/b")),
                {kFileErrorDomain, ENOTDIR, "mkdir", at("file/a/b")});
  expectFailure(clientcomm::makeDirectoryAtPath(at("file")),
                {kFileErrorDomain, EEXIST, "mkdir", at("file")});
  const auto error = clientcomm::createDirectoryAtPath(at("file"));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->userInfo.at("FilePath"), at("file"));
  EXPECT_EQ(error->userInfo.at("FailedCall"), "mkdir");
}

TEST(FailedOperation, TellsWhichFolderCannotBeListed) {
  std::vector<std::string> names;
  expectFailure(clientcomm::listDirectoryAtPath(at("none"), names),
                {kFileErrorDomain, ENOENT, "open", at("none")});
  std::vector<std::string> places;
  expectFailure(clientcomm::placesMovedAsideFrom(at("none/Helper.app"), places),
                {kFileErrorDomain, ENOENT, "open", at("none")});
}

TEST(FailedOperation, TellsWhichPartOfATreeCannotBeCopied) {
  fs::create_directories(at("tree/sub"));
  ASSERT_EQ(mkfifo(at("tree/sub/pipe").c_str(), 0600), 0);
  expectFailure(clientcomm::copyPath(at("tree"), at("copy")),
                {kFileErrorDomain, EINVAL, "isRegularFile", at("tree/sub/pipe")});
  expectFailure(clientcomm::copyPath(at("none"), at("copy")),
                {kFileErrorDomain, ENOENT, "fstatat", at("none")});
  expectFailure(clientcomm::copyPath(at("tree"), at("none/copy")),
                {kFileErrorDomain, ENOENT, "open", at("none")});
  expectFailure(clientcomm::copyPath(at("tree/sub"), at("tree")),
                {kFileErrorDomain, EEXIST, "fstatat", at("tree")});
}

TEST(FailedOperation, TellsWhichPartOfACopyCannotBeWritten) {
  fs::create_directories(at("tree/sub"));
  support::writeFile(at("tree/sub/file"), "longer text");
  const FileSizeLimit limit(4);
  const Status copied = clientcomm::copyPath(at("tree"), at("copy"));
  EXPECT_EQ(copied.code(), EFBIG);
  EXPECT_EQ(copied.path(), at("copy/sub/file"));
}

TEST(FailedOperation, TellsWhichPartOfATreeCannotBeRemoved) {
  fs::create_directories(at("tree/sub/mounted"));
  auto process = support::ChildProcess::fork([] {
    if (!support::ownMounts()) return kNotAllowed;
    const support::MountedFileSystem mounted("tmpfs", at("tree/sub/mounted"));
    if (!mounted.problem().empty()) return kNotAllowed;
    expectFailure(clientcomm::removeItemAtPath(at("tree")),
                  {kFileErrorDomain, EBUSY, "unlinkat", at("tree/sub/mounted")});
    return testing::Test::HasFailure() ? 1 : 0;
  });
  const int status = process.wait();
  if (status == kNotAllowed) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(FailedOperation, TellsWhichBundleCannotBeMovedAside) {
  std::string place;
  expectFailure(clientcomm::moveAside(at("none/Helper.app"), place),
                {kFileErrorDomain, ENOENT, "open", at("none")});
  expectFailure(clientcomm::moveAside(at("Helper.app"), place),
                {kFileErrorDomain, ENOENT, "renameat", at("Helper.app")});
}

TEST(FailedOperation, TellsWhereProcessesCannotBeLookedFor) {
  support::writeFile(at("file"), "text");
  std::vector<std::int32_t> processes;
  expectFailure(clientcomm::processesRunningBelow(at("file/below"), processes),
                {clientcomm::kProcessErrorDomain, ENOTDIR, "realpath", at("file/below")});
}

TEST(FailedOperation, TellsWhyAFolderIsNotLocked) {
  const clientcomm::DirectoryLock missing(at("none"), std::chrono::milliseconds(0));
  expectFailure(missing.status(), {clientcomm::kLockErrorDomain, ENOENT, "open", at("none")});
  const clientcomm::DirectoryLock first(support::sandbox(), std::chrono::milliseconds(0));
  EXPECT_TRUE(first.status().isOk());
  const clientcomm::DirectoryLock second(support::sandbox(), std::chrono::milliseconds(1));
  EXPECT_FALSE(second.isHeld());
  expectFailure(second.status(),
                {clientcomm::kLockErrorDomain, ETIMEDOUT, "flock", support::sandbox()});
}

TEST(FailedOperation, TellsWhyAnApplicationIsNotLaunched) {
  auto& workspace = clientcomm::Workspace::sharedWorkspace();
  expectFailure(workspace.openFile(at("None.app")),
                {clientcomm::kProcessErrorDomain, ENOENT, "executablePath", at("None.app")});
  const std::string application =
      support::makeApplication("Broken", "com.example.broken", "failed-operation-unused");
  const std::string executable = support::executableOf(application);
  fs::remove(executable);
  support::writeFile(executable, "#!/none/interpreter\n");
  fs::permissions(executable, fs::perms::owner_all);
  expectFailure(workspace.openFile(application),
                {clientcomm::kProcessErrorDomain, ENOENT, "execve", executable});
}

TEST(FailedOperation, TellsThatTheRuntimeFolderOfALaunchIsNotUsable) {
  const std::string application =
      support::makeApplication("Homeless", "com.example.homeless", "failed-operation-unused");
  fs::remove_all(at("runtime/ClientComm"));
  support::writeFile(at("runtime/ClientComm"), "in its place");
  const std::string folder = clientcomm::runtimeFolderPath();
  expectFailure(clientcomm::Workspace::sharedWorkspace().openFile(application),
                {kFileErrorDomain, ENOTDIR, "openRuntimeFolder", folder});
  expectFailure(clientcomm::recordOwnProcess(),
                {kFileErrorDomain, ENOTDIR, "openRuntimeFolder", folder});
}

TEST(FailedOperation, TellsWhichRecordCannotBeWritten) {
  const ScopedFd none;
  const clientcomm::LaunchRecord record{"/Some.app", "state", getpid()};
  const std::string name = clientcomm::launchRecordName("/Some.app");
  expectFailure(clientcomm::noteLaunch(none.get(), "com.example.some", record),
                {kFileErrorDomain, EBADF, "openat", name});
  ASSERT_TRUE(clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid());
  constexpr pid_t kNoProcess = 0x3fffffff;
  expectFailure(clientcomm::recordLaunchedProcess(kNoProcess, clientcomm::Bundle::mainBundle()),
                {clientcomm::kProcessErrorDomain, ESRCH, "processStartTime",
                 "/proc/" + std::to_string(kNoProcess)});
}

TEST(FailedOperation, TellsWhyASettingsFileCannotBeRead) {
  std::string bytes;
  expectFailure(clientcomm::readSettingsFile(at("none"), bytes),
                {kFileErrorDomain, ENOENT, "open", at("none")});
  fs::create_directory(at("folder"));
  fs::create_symlink("folder", at("link"));
  expectFailure(clientcomm::readSettingsFile(at("link"), bytes),
                {kFileErrorDomain, EINVAL, "isRegularFile", at("folder")});
}

TEST(FailedOperation, TellsWhyASettingsFileCannotBeWritten) {
  using clientcomm::WriteForm;
  support::writeFile(at("file"), "old");
  fs::create_directory(at("folder"));
  expectFailure(clientcomm::writeSettingsFile(at("folder"), "new", WriteForm::kInPlace, 0600),
                {kFileErrorDomain, EINVAL, "isRegularFile", at("folder")});
  expectFailure(clientcomm::writeSettingsFile(at("file/x"), "new", WriteForm::kInPlace, 0600),
                {kFileErrorDomain, ENOTDIR, "lstat", at("file/x")});
  const FileSizeLimit limit(4);
  expectFailure(clientcomm::writeSettingsFile(at("file"), "longer", WriteForm::kByRename, 0600),
                {kFileErrorDomain, EFBIG, "write", at("file")});
  EXPECT_EQ(support::readFile(at("file")), "old");
}

TEST(FailedOperation, TellsWhyASettingsFileCannotBeWrittenInPlace) {
  support::writeFile(at("file"), "old");
  const FileSizeLimit limit(4);
  const Status written =
      clientcomm::writeSettingsFile(at("file"), "longer", clientcomm::WriteForm::kInPlace, 0600);
  EXPECT_EQ(written.code(), EFBIG);
  EXPECT_STREQ(written.call(), "write");
  EXPECT_TRUE(written.path().starts_with(support::sandbox() + "/.file.")) << written.path();
  EXPECT_EQ(support::readFile(at("file")), "old");
}

TEST(FailedOperation, TellsThatAWriteInPlaceIsUnderWay) {
  support::writeFile(at("file"), "old");
  std::optional<clientcomm::RecoveryCopy> copy;
  ASSERT_TRUE(clientcomm::RecoveryCopy::make(at("file"), "old", "new", copy).isOk());
  auto other = clientcomm::RecoveryCopy::find(at("file"));
  ASSERT_TRUE(other);
  const Status taken = other->takeOver();
  EXPECT_STREQ(taken.domain(), clientcomm::kLockErrorDomain);
  EXPECT_EQ(taken.code(), EWOULDBLOCK);
  EXPECT_STREQ(taken.call(), "flock");
  EXPECT_TRUE(copy->remove().isOk());
}

}  // namespace
