#include "ClientComm/platform/linux/bundle_identities.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/platform/linux/local_file.h"
#include "ClientComm/platform/linux/patient_reader.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// Other applications' Info.plist as their owner may have left it: large, a link, on a file system
// that does not answer.

namespace {

namespace fs = std::filesystem;
using clientcomm::identifierOfPeer;
using clientcomm::kLargestInfo;
using clientcomm::kMaximumIdentifierLength;
using clientcomm::LocalAccess;
using clientcomm::ScopedFd;
using clientcomm::serialNumberForPeer;
using support::ChildProcess;

constexpr char kIdentifier[] = "com.example.waiter";
constexpr int kNotAllowed = 77;

std::string makeWaiter(const std::string& identifier = kIdentifier) {
  return support::makeApplication("Waiter", identifier, "waiter");
}

ChildProcess start(const std::string& application, const std::vector<std::string>& arguments = {}) {
  ChildProcess process = support::runApplication(application, arguments);
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

ChildProcess startUnrecorded(const std::string& application) {
  return start(application, {"unrecorded"});
}

clientcomm::OptionalString identifierOf(pid_t pid) {
  const auto psn = serialNumberForPeer(pid, -1);
  return psn ? identifierOfPeer(*psn) : std::nullopt;
}

std::string infoOfSize(std::size_t size) {
  std::string text = clientcomm::xmlPropertyList({{"CFBundleIdentifier", kIdentifier}});
  const auto end = text.rfind("</plist>");
  return text.insert(end, size - text.size(), ' ');
}

TEST(InfoOfACaller, Of64KiBIsReadAndALargerOneIsNot) {
  const std::string application = makeWaiter();
  const ChildProcess process = startUnrecorded(application);
  support::writeFile(application + "/Contents/Info.plist", infoOfSize(kLargestInfo));
  EXPECT_EQ(identifierOf(process.pid()), kIdentifier);
  const ChildProcess second = startUnrecorded(support::makeApplication("Large", "x", "waiter"));
  support::writeFile(support::sandbox() + "/apps/Large.app/Contents/Info.plist",
                     infoOfSize(kLargestInfo + 1));
  EXPECT_EQ(identifierOf(second.pid()), std::nullopt);
}

TEST(InfoOfACaller, IsReadOnceForEachOfManyApplications) {
  constexpr std::uint32_t kApplications = 200;
  const ScopedFd opened(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  std::vector<ScopedFd> executables;
  std::string info;
  for (std::uint32_t i = 0; i < kApplications; ++i) {
    const std::string name = "Many" + std::to_string(i);
    const std::string application = support::makeApplication(name, "com.example." + name, "waiter");
    executables.emplace_back(open(support::executableOf(application).c_str(), O_PATH | O_CLOEXEC));
    info = application + "/Contents/Info.plist";
    ASSERT_GE(inotify_add_watch(opened.get(), info.c_str(), IN_OPEN), 0);
  }
  const auto areReadBy = [&](std::uint32_t firstToken) {
    for (std::uint32_t i = 0; i < kApplications; ++i) {
      EXPECT_TRUE(serialNumberForPeer(0, executables[i].get(), firstToken + i));
    }
    alignas(inotify_event) char events[4096];
    bool isAny = false;
    while (read(opened.get(), events, sizeof events) > 0) isAny = true;
    return isAny;
  };
  ASSERT_TRUE(support::waitUntil([&] {
    const auto signature = clientcomm::FileSignature::ofFile(info);
    return signature && signature->isSettled();
  }));
  EXPECT_TRUE(areReadBy(1000));
  EXPECT_FALSE(areReadBy(2000));
}

TEST(InfoOfACaller, ThatIsALinkIsNotFollowed) {
  const std::string application = makeWaiter();
  const ChildProcess process = startUnrecorded(application);
  const std::string info = application + "/Contents/Info.plist";
  fs::rename(info, application + "/Contents/Other.plist");
  fs::create_symlink("Other.plist", info);
  EXPECT_EQ(identifierOf(process.pid()), std::nullopt);
  fs::remove(info);
  fs::rename(application + "/Contents/Other.plist", info);
  EXPECT_TRUE(support::waitUntil([&] { return identifierOf(process.pid()) == kIdentifier; }));
}

TEST(InfoOfACaller, WithAnIdentifierThatIsTooLongHasNone) {
  const std::string longest(kMaximumIdentifierLength, 'x');
  const ChildProcess first = startUnrecorded(makeWaiter(longest));
  EXPECT_EQ(identifierOf(first.pid()), longest);
  const ChildProcess second =
      startUnrecorded(support::makeApplication("Other", longest + "x", "waiter"));
  EXPECT_EQ(identifierOf(second.pid()), std::nullopt);
}

TEST(InfoOfACaller, WithAnIdentifierThatIsTooLongHasNoneByItsRecordEither) {
  const std::string application = makeWaiter(std::string(kMaximumIdentifierLength + 1, 'x'));
  const ChildProcess process = start(application);
  fs::remove_all(application);
  EXPECT_EQ(identifierOf(process.pid()), std::nullopt);
}

// --- File systems that may not answer. ---

/// A FUSE file system without a server: every request to it waits for ever.
class DeafFileSystem {
 public:
  explicit DeafFileSystem(const std::string& folder)
      : device_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
    const std::string options = "fd=" + std::to_string(device_.get()) +
                                ",rootmode=40000,user_id=" + std::to_string(getuid()) +
                                ",group_id=" + std::to_string(getgid());
    isMounted_ = mount("deaf", folder.c_str(), "fuse", 0, options.c_str()) == 0;
  }
  bool isMounted() const { return isMounted_; }

 private:
  ScopedFd device_;
  bool isMounted_;
};

// Runs `body` where it can mount file systems that only it sees. It is killed when it hangs.
int runWithMounts(const std::function<int()>& body) {
  return ChildProcess::fork([&] {
           if (unshare(CLONE_NEWNS) != 0) return kNotAllowed;
           if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return kNotAllowed;
           alarm(40);
           return body();
         })
      .wait();
}

bool hasChildren() { return waitpid(-1, nullptr, WNOHANG | __WALL) >= 0 || errno != ECHILD; }

// False for a while after a file system did not answer in time.
bool isReadByAChild(const std::string& path) {
  support::writeFile(path, "text");
  std::string bytes;
  return clientcomm::readByChildProcess(path, 4, bytes).isOk() && bytes == "text";
}

TEST(InfoOnAFileSystemThatDoesNotAnswer, IsNotWaitedForWhereTheCallerHasARecord) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  const int status = runWithMounts([&] {
    const DeafFileSystem deaf(application + "/Contents");
    if (!deaf.isMounted()) return kNotAllowed;
    if (identifierOf(process.pid()) != kIdentifier || hasChildren()) return 1;
    return isReadByAChild(support::sandbox() + "/file") ? 0 : 2;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "FUSE cannot be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(InfoOnAFileSystemThatDoesNotAnswer, IsWaitedForOnceForLimitedTimeWhereTheCallerHasNoRecord) {
  const std::string application = makeWaiter();
  const ChildProcess process = startUnrecorded(application);
  const ChildProcess other = startUnrecorded(support::makeApplication("Other", "x", "waiter"));
  const int status = runWithMounts([&] {
    const DeafFileSystem deaf(application + "/Contents");
    const DeafFileSystem another(support::sandbox() + "/apps/Other.app/Contents");
    if (!deaf.isMounted() || !another.isMounted()) return kNotAllowed;
    const auto begin = std::chrono::steady_clock::now();
    if (identifierOf(process.pid())) return 1;
    if (identifierOf(other.pid())) return 2;
    const auto waited = std::chrono::steady_clock::now() - begin;
    if (waited < clientcomm::kReadLimit || waited > std::chrono::seconds(20)) return 3;
    return isReadByAChild(support::sandbox() + "/file") ? 4 : 0;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "FUSE cannot be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(InfoOnAFileSystemThatDoesNotAnswer, IsNotAskedForByOpeningWhatIsBelow) {
  const std::string folder = support::sandbox() + "/deaf";
  fs::create_directories(folder);
  const int status = runWithMounts([&] {
    const DeafFileSystem deaf(folder);
    if (!deaf.isMounted()) return kNotAllowed;
    const auto file = clientcomm::openLocalFile(folder + "/file");
    return file.access == clientcomm::LocalAccess::kMayBlock ? 0 : 1;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "FUSE cannot be mounted here";
  EXPECT_EQ(status, 0);
}

// How the two files below `folder` are opened: one by its path, the other through a link.
std::pair<LocalAccess, LocalAccess> accessesBelow(const std::string& folder) {
  return {clientcomm::openLocalFile(folder + "/real/file").access,
          clientcomm::openLocalFile(folder + "/link/file").access};
}

TEST(LocalFile, IsOpenedByThePathThatHasNoLinkWithCachedNamesAndWithout) {
  const std::string folder = fs::canonical(support::sandbox());
  support::writeFile(folder + "/real/file", "x");
  fs::create_directory_symlink("real", folder + "/link");
  const std::pair expected(LocalAccess::kOpen, LocalAccess::kMissing);
  EXPECT_EQ(accessesBelow(folder), expected);
  ChildProcess child = ChildProcess::fork([&] {
    support::refuseSystemCall(SYS_openat2, ENOSYS);
    return accessesBelow(folder) == expected ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
}

// ramfs stands for any file system whose type is not known to be local.
TEST(LocalFile, IsOneByTheTypeOfItsFileSystemAlsoWhereItsNamesAreCached) {
  const std::string folder = fs::canonical(support::sandbox()) / "mounted";
  fs::create_directory(folder);
  const int status = runWithMounts([&] {
    const auto accessOn = [&](const char* type) {
      if (mount(type, folder.c_str(), type, 0, nullptr) != 0) return std::optional<LocalAccess>();
      support::writeFile(folder + "/file", "x");
      return std::optional(clientcomm::openLocalFile(folder + "/file").access);
    };
    const auto unknown = accessOn("ramfs");
    const auto known = accessOn("tmpfs");
    if (!unknown || !known) return kNotAllowed;
    return unknown == LocalAccess::kMayBlock && known == LocalAccess::kOpen ? 0 : 1;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(ExecutableOnAFileSystemThatDoesNotAnswer, IsNotAskedWhetherItIsRemoved) {
  const std::string application = support::makeApplication("X (deleted)", kIdentifier, "waiter");
  const ChildProcess process = startUnrecorded(application);
  const int status = runWithMounts([&] {
    const DeafFileSystem deaf(application + "/Contents");
    if (!deaf.isMounted()) return kNotAllowed;
    return clientcomm::ExecutableLink::ofProcess(process.pid()).isRemoved() ? 0 : 1;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "FUSE cannot be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(ExecutableOnAFileSystemThatDoesNotAnswer, IsNotAskedForItsKindWhenItIsHandedOver) {
  const std::string folder = support::sandbox() + "/Deaf.app/Contents/Linux";
  fs::create_directories(folder);
  const int status = runWithMounts([&] {
    const DeafFileSystem deaf(folder);
    if (!deaf.isMounted()) return kNotAllowed;
    const ScopedFd handedOver(open(folder.c_str(), O_PATH | O_CLOEXEC));
    return handedOver.isValid() && !serialNumberForPeer(0, handedOver.get()) ? 0 : 1;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "FUSE cannot be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(InfoOnAnotherFileSystem, IsReadByAProcessThatIsGoneAfterwards) {
  const std::string application = makeWaiter();
  const ChildProcess process = startUnrecorded(application);
  const std::string info = support::readFile(application + "/Contents/Info.plist");
  const int status = runWithMounts([&] {
    const std::string contents = application + "/Contents";
    if (mount("ram", contents.c_str(), "ramfs", 0, nullptr) != 0) return kNotAllowed;
    if (identifierOf(process.pid())) return 1;  // there is no Info.plist yet
    support::writeFile(contents + "/Info.plist", info);
    const int descriptors = support::openDescriptorCount();
    std::string bytes;
    const auto readInfo = [&](std::size_t limit) {
      return clientcomm::readByChildProcess(contents + "/Info.plist", limit, bytes).isOk();
    };
    if (!readInfo(info.size()) || bytes != info) return 2;
    if (readInfo(info.size() - 1)) return 3;
    if (clientcomm::readByChildProcess(contents, 100, bytes).isOk()) return 4;
    if (hasChildren() || support::openDescriptorCount() != descriptors) return 5;
    return 0;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(InfoOnAnotherFileSystem, OutweighsARecordOfAnotherBundle) {
  const std::string application = makeWaiter();
  const ChildProcess process = start(application);
  const std::string file =
      clientcomm::runtimeFolderPath() + "/" + clientcomm::processRecordName(process.pid());
  std::string record = support::readFile(file);
  for (const std::string name : {"/Waiter.app", "example.waiter"}) {
    const auto at = record.find(name);
    ASSERT_NE(at, std::string::npos);
    record.insert(at + 1, "former.");
  }
  support::writeFile(file, record);
  const int status = runWithMounts([&] {
    const std::string contents = application + "/Contents";
    const std::string info = support::readFile(contents + "/Info.plist");
    if (mount("ram", contents.c_str(), "ramfs", 0, nullptr) != 0) return kNotAllowed;
    support::writeFile(contents + "/Info.plist", info);
    return identifierOf(process.pid()) == kIdentifier ? 0 : 1;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(status, 0);
}

TEST(InfoOnAnotherFileSystem, TellsTheIdentity) {
  const std::string application = makeWaiter();
  const ChildProcess process = startUnrecorded(application);
  const int status = runWithMounts([&] {
    const std::string contents = application + "/Contents";
    const std::string info = support::readFile(contents + "/Info.plist");
    if (mount("ram", contents.c_str(), "ramfs", 0, nullptr) != 0) return kNotAllowed;
    support::writeFile(contents + "/Info.plist", info);
    return identifierOf(process.pid()) == kIdentifier ? 0 : 1;
  });
  if (status == kNotAllowed) GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(status, 0);
}

}  // namespace
