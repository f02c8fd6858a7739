#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <string_view>

#include "ClientComm/platform/linux/local_file.h"
#include "ClientComm/platform/linux/patient_reader.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/posix/atomic_file.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/status.h"
#include "tests/support/test_sandbox.h"

/// What a failed operation reports: domain, code, path and call.
namespace {

namespace fs = std::filesystem;
using clientcomm::kFileErrorDomain;
using clientcomm::ScopedFd;
using clientcomm::Status;

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

}  // namespace
