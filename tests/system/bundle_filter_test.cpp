#include "ClientComm/platform/linux/bundle_filter.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/workspace.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// Which processes are looked at closely when a bundle's application is searched for.

namespace {

namespace fs = std::filesystem;
using clientcomm::BundleFilter;
using support::ChildProcess;

constexpr char kIdentifier[] = "com.example.sought";

const support::Role opening("sought", [](const std::vector<std::string>& /*arguments*/) -> int {
  TQHPAppleEventProcesser::share();
  std::puts("ready");
  std::fflush(stdout);
  for (;;) pause();
});

std::string makeSought(const std::string& folder = "apps") {
  return support::makeApplication("Sought", kIdentifier, "sought", {}, folder);
}

ChildProcess start(const std::string& application) {
  ChildProcess process = ChildProcess::spawn({application + "/Contents/Linux/Sought"});
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

std::string makeLinkOfAnotherName() {
  std::string link = support::sandbox() + "/Current.app";
  fs::create_directory_symlink("apps/Sought.app", link);
  return link;
}

bool isRunning(const std::string& application) {
  return TQHPProcessList::share().applicationIsRunning(clientcomm::OptionalString(kIdentifier),
                                                       application);
}

// An open application is found, and is not launched a second time.
void expectOpenAt(const std::string& application) {
  EXPECT_TRUE(isRunning(application));
  EXPECT_TRUE(clientcomm::Workspace::sharedWorkspace().openFile(application).isOk());
}

// The names of the files that are opened in the runtime folder while this lives.
class OpenedFiles {
 public:
  OpenedFiles() : watch_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    const std::string& folder = clientcomm::runtimeFolderPath();
    EXPECT_GE(inotify_add_watch(watch_.get(), folder.c_str(), IN_OPEN), 0);
  }

  bool contain(const std::string& name) {
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(watch_.get(), events, sizeof events);
    return size > 0 && std::string_view(events, static_cast<std::size_t>(size)).find(name) !=
                           std::string_view::npos;
  }

 private:
  clientcomm::ScopedFd watch_;
};

TEST(BundleFilter, RecordsOfProcessesInOtherBundlesAreNotRead) {
  const std::string application = makeSought();
  const ChildProcess process = start(application);
  const std::string record = "process." + std::to_string(process.pid());
  OpenedFiles opened;
  EXPECT_FALSE(isRunning(support::sandbox() + "/apps/Other.app"));
  EXPECT_FALSE(opened.contain(record));
  EXPECT_TRUE(isRunning(application));
  EXPECT_TRUE(opened.contain(record)) << "which would have been seen";
}

// Such a process may be of any bundle, but it has said nothing of itself.
TEST(BundleFilter, AProcessOfARemovedBundleLeavesTheRecordsOfOthersUnread) {
  const std::string application = makeSought();
  const ChildProcess process = start(application);
  const fs::path removed = support::sandbox() + "/apps/Removed.app";
  fs::create_directories(removed / "Contents/Linux");
  fs::copy_file("/bin/sleep", removed / "Contents/Linux/Removed");
  const ChildProcess stranger = ChildProcess::spawn({removed / "Contents/Linux/Removed", "60"});
  ASSERT_TRUE(support::waitUntil([&] { return BundleFilter(removed).mayRun(stranger.pid()); }));
  fs::remove_all(removed);
  OpenedFiles opened;
  EXPECT_FALSE(isRunning(support::sandbox() + "/apps/Other.app"));
  EXPECT_FALSE(opened.contain("process." + std::to_string(process.pid())));
}

TEST(BundleFilter, RulesOutWhatRunsNoBundleOrAnotherOne) {
  const BundleFilter filter(support::hostBundlePath());
  const ChildProcess program = ChildProcess::spawn({"/bin/sleep", "60"});
  const ChildProcess other = start(makeSought());
  EXPECT_TRUE(filter.mayRun(getpid()));
  // It still runs this program for a moment.
  EXPECT_TRUE(support::waitUntil([&] { return !filter.mayRun(program.pid()); }));
  EXPECT_FALSE(filter.mayRun(other.pid()));
  EXPECT_FALSE(filter.mayRun(99'999'999));
}

TEST(BundleFilter, AnApplicationLaunchedThroughALinkOfAnotherNameIsFound) {
  makeSought();
  const std::string link = makeLinkOfAnotherName();
  const ChildProcess process = start(link);
  expectOpenAt(link);
}

TEST(BundleFilter, AnApplicationInABundleMountedUnderAnotherNameIsNotLaunchedAgain) {
  if (!support::ownMounts()) GTEST_SKIP() << "this process may not mount anything";
  const std::string application = makeSought();
  const std::string mounted = support::sandbox() + "/Mounted.app";
  fs::create_directory(mounted);
  ASSERT_EQ(mount(application.c_str(), mounted.c_str(), nullptr, MS_BIND, nullptr), 0);
  const ChildProcess process = start(application);
  EXPECT_TRUE(BundleFilter(mounted).mayRun(process.pid()));
  EXPECT_TRUE(clientcomm::Workspace::sharedWorkspace().openFile(mounted).isOk());
  EXPECT_FALSE(isRunning(mounted)) << "nothing was launched from there";
}

TEST(BundleFilter, AnApplicationWhoseLinkWasRemovedWithTheBundleIsFound) {
  const std::string application = makeSought();
  const std::string link = makeLinkOfAnotherName();
  const ChildProcess process = start(link);
  fs::remove_all(application);
  fs::remove(link);
  EXPECT_TRUE(isRunning(link));
}

TEST(BundleFilter, AnApplicationWhoseBundleIsBeingRemovedIsFound) {
  const std::string application = makeSought();
  const ChildProcess process = start(application);
  fs::rename(application, support::sandbox() + "/apps/.Sought.app.removed-1-1");
  EXPECT_TRUE(isRunning(application));
}

}  // namespace
