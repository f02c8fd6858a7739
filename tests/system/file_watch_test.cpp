#include "ClientComm/platform/linux/file_watch.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "ClientComm/platform/glib/scoped_source.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/socket_path.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::FileWatch;
using clientcomm::ScopedFd;
using clientcomm::SocketPath;

constexpr char kSocket[] = "socket";
constexpr char kRecord[] = "record";

std::string pathOf(const std::string& name) { return clientcomm::runtimeFolderPath() + "/" + name; }

ScopedFd listenAt(const std::string& name) {
  ScopedFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  EXPECT_EQ(bind(listener.get(), SocketPath(name).address(), SocketPath::size()), 0);
  EXPECT_EQ(listen(listener.get(), 1), 0);
  return listener;
}

/// What a new application does in the folder.
void putInPlace(const std::string& name) {
  support::writeFile(pathOf(name + ".new"), "another");
  fs::rename(pathOf(name + ".new"), pathOf(name));
}

class FileWatchTest : public testing::Test {
 protected:
  FileWatchTest() {
    clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
    listener_ = listenAt(kSocket);
    support::writeFile(pathOf(kRecord), "a record");
    static GSourceFuncs functions = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
    source_.reset(g_source_new(&functions, sizeof(Source)));
    reinterpret_cast<Source*>(source_.get())->test = this;
    g_source_attach(source_.get(), nullptr);
  }
  ~FileWatchTest() override { fs::remove_all(clientcomm::runtimeFolderPath()); }

  /// Whether the source has been dispatched by now, for the watch.
  bool isDispatched() {
    wasDispatched_ = false;
    while (g_main_context_iteration(nullptr, FALSE) != FALSE && !wasDispatched_) {
    }
    return wasDispatched_;
  }

  bool start() { return watch_.start(kSocket, kRecord); }

  struct Source {
    GSource base;
    FileWatchTest* test;
  };
  static gboolean dispatch(GSource* source, GSourceFunc /*callback*/, void* /*data*/) {
    FileWatchTest& test = *reinterpret_cast<Source*>(source)->test;
    test.wasDispatched_ = test.watch_.hasFired();
    return G_SOURCE_CONTINUE;
  }

  ScopedFd listener_;
  clientcomm::ScopedSource source_;
  FileWatch watch_{source_};
  bool wasDispatched_ = false;
};

struct Change {
  const char* name;
  std::function<void()> make;
};

void PrintTo(const Change& change, std::ostream* stream) { *stream << change.name; }

class ChangeOfFiles : public FileWatchTest, public testing::WithParamInterface<Change> {};

const Change kChanges[] = {
    {"SocketIsRemoved", [] { fs::remove(pathOf(kSocket)); }},
    {"SocketIsMoved", [] { fs::rename(pathOf(kSocket), pathOf("elsewhere")); }},
    {"SocketIsReplaced", [] { putInPlace(kSocket); }},
    {"RecordIsRemoved", [] { fs::remove(pathOf(kRecord)); }},
    {"RecordIsMoved", [] { fs::rename(pathOf(kRecord), pathOf("elsewhere")); }},
    {"RecordIsReplaced", [] { putInPlace(kRecord); }},
    {"RecordIsOverwritten", [] { support::writeFile(pathOf(kRecord), "another"); }},
    {"FolderIsRemoved", [] { fs::remove_all(clientcomm::runtimeFolderPath()); }},
    {"FolderIsOpenedToOthers", [] { chmod(clientcomm::runtimeFolderPath().c_str(), 0755); }},
    {"FolderIsMoved",
     [] {
       fs::rename(clientcomm::runtimeFolderPath(), support::sandbox() + "/moved");
       fs::rename(support::sandbox() + "/moved", clientcomm::runtimeFolderPath());
     }},
    {"FolderAboveIsMoved",
     [] {
       fs::rename(support::sandbox() + "/runtime", support::sandbox() + "/moved");
       fs::rename(support::sandbox() + "/moved", support::sandbox() + "/runtime");
     }},
};

INSTANTIATE_TEST_SUITE_P(Each, ChangeOfFiles, testing::ValuesIn(kChanges),
                         [](const auto& change) { return std::string(change.param.name); });

TEST_P(ChangeOfFiles, IsNoticedAndOnceTheWatchBeginsAgainIsOver) {
  ASSERT_TRUE(start());
  EXPECT_FALSE(isDispatched());
  GetParam().make();
  EXPECT_TRUE(isDispatched());
  watch_.stop();
  EXPECT_FALSE(watch_.isOn());
  EXPECT_FALSE(isDispatched());
  clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
  fs::remove(pathOf(kSocket));
  listener_ = listenAt(kSocket);
  support::writeFile(pathOf(kRecord), "a record");
  ASSERT_TRUE(start());
  EXPECT_FALSE(isDispatched());
  fs::remove(pathOf(kSocket));
  EXPECT_TRUE(isDispatched());
}

TEST_F(FileWatchTest, IsNotDisturbedByOtherApplications) {
  ASSERT_TRUE(start());
  const ScopedFd other = listenAt("other.1");
  fs::rename(pathOf("other.1"), pathOf("other"));
  putInPlace("record of another");
  putInPlace("record of another");
  fs::remove(pathOf("record of another"));
  fs::remove(pathOf("other"));
  const ScopedFd caller(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect(caller.get(), SocketPath(kSocket).address(), SocketPath::size()), 0);
  EXPECT_EQ(support::readFile(pathOf(kRecord)), "a record");
  support::writeFile(support::sandbox() + "/runtime/of another program", "");
  EXPECT_FALSE(isDispatched());
}

TEST_F(FileWatchTest, IsQuietWhileItIsNotPolled) {
  ASSERT_TRUE(start());
  watch_.poll(static_cast<GIOCondition>(0));
  fs::remove(pathOf(kSocket));
  EXPECT_FALSE(isDispatched());
  watch_.poll(G_IO_IN);
  EXPECT_TRUE(isDispatched());
}

TEST_F(FileWatchTest, DoesNotBeginWhereAFileIsMissing) {
  fs::remove(pathOf(kRecord));
  EXPECT_FALSE(start());
  EXPECT_FALSE(watch_.isOn());
}

TEST_F(FileWatchTest, DoesNotBeginWhereALinkLeadsToTheFolder) {
  fs::rename(support::sandbox() + "/runtime", support::sandbox() + "/moved");
  fs::create_directory_symlink(support::sandbox() + "/moved", support::sandbox() + "/runtime");
  EXPECT_FALSE(start());
  fs::remove(support::sandbox() + "/runtime");
  fs::rename(support::sandbox() + "/moved", support::sandbox() + "/runtime");
  EXPECT_TRUE(start());
}

TEST_F(FileWatchTest, DoesNotBeginWhereTheUserHasTooManyWatches) {
  const auto isRefused = [this](unsigned call, int error) {
    return support::ChildProcess::fork([=, this] {
             support::refuseSystemCall(call, error);
             return start() || watch_.isOn() ? 1 : 0;
           }).wait() == 0;
  };
  EXPECT_TRUE(isRefused(SYS_inotify_init1, EMFILE));
  EXPECT_TRUE(isRefused(SYS_inotify_add_watch, ENOSPC));
}

}  // namespace
