#include "ClientComm/platform/owner_thread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/user_defaults.h"
#include "ClientComm/platform/workspace.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

using support::ChildProcess;

std::string messages() { return support::sandbox() + "/messages"; }

void onAnotherThread(const std::function<void()>& use) { std::thread(use).join(); }

// Runs `use` in a process of its own, whose messages go into a file.
// @return the exit status; 128 + the signal's number when one ended it.
int statusOf(const std::function<void()>& use) {
  auto process = ChildProcess::fork([&] {
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    dup2(open(messages().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDERR_FILENO);
    use();
    return 0;
  });
  return process.wait();
}

class OwnerThread : public testing::Test {
 protected:
  void SetUp() override {
#ifdef NDEBUG
    GTEST_SKIP() << "a release build does not check";
#endif
  }
};

TEST_F(OwnerThread, IsRequiredByWhatHasState) {
  const std::function<void()> uses[] = {
      [] { clientcomm::AppleEventManager::sharedAppleEventManager(); },
      [] { clientcomm::Bundle::mainBundle(); },
      [] { clientcomm::UserDefaults::standardUserDefaults(); },
      [] { clientcomm::Workspace::sharedWorkspace(); },
      [] { TQHPAppleEventProcesser::share(); },
      [] { TQHPHelperControl::share(); }};
  for (const auto& use : uses) {
    EXPECT_EQ(statusOf([&] {
                use();
                onAnotherThread(use);
              }),
              128 + SIGABRT);
    EXPECT_EQ(
        support::readFile(messages()),
        "ClientComm: a call on a second thread; all calls go to the thread of the first one\n");
    EXPECT_EQ(statusOf([&] {
                use();
                use();
              }),
              0);
  }
}

TEST_F(OwnerThread, IsTheFirstThatUsesTheLibraryAndNotTheMainThread) {
  const auto use = [] { TQHPHelperControl::share(); };
  EXPECT_EQ(statusOf([&] {
              onAnotherThread([&] {
                use();
                use();
              });
            }),
            0);
  EXPECT_EQ(statusOf([&] {
              onAnotherThread(use);
              use();
            }),
            128 + SIGABRT);
}

TEST(ProcessListThreads, MayBeManyAtOnce) {
  const clientcomm::Bundle& host = clientcomm::Bundle::mainBundle();
  const auto identifier = host.bundleIdentifier();
  const std::string path = host.bundlePath();
  const auto look = [&] {
    constexpr int kRounds = 3;
    TQHPProcessList& list = TQHPProcessList::share();
    int found = 0;
    for (int round = 0; round < kRounds; ++round) {
      if (list.applicationIsRunning(identifier, path)) ++found;
      if (!list.infoForPID(getpid()) || list.getBSDProcessList().empty()) --found;
    }
    return found == kRounds;
  };
  std::vector<char> isFound(2, 0);
  std::vector<std::thread> threads;
  for (char& result : isFound) threads.emplace_back([&] { result = look() ? 1 : 0; });
  EXPECT_TRUE(look());
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(isFound, std::vector<char>(2, 1));
}

}  // namespace
