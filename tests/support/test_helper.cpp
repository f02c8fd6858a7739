#include "tests/support/test_helper.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace support {
namespace {

const Role idleRole(kIdleRole, [](const std::vector<std::string>& /*arguments*/) {
  TQHPAppleEventProcesser::share();
  std::puts("open");
  std::fflush(stdout);
  for (;;) pause();
  return 0;
});

}  // namespace

std::string makeHelper(const std::string& folder, const std::string& version) {
  return makeApplication(kHelperName, helperIdentifier(), kIdleRole, {{"CFBundleVersion", version}},
                         folder);
}

ChildProcess runHelper(const std::string& path) {
  ChildProcess helper = runApplication(path);
  EXPECT_EQ(helper.readLine(), "open");
  return helper;
}

ChildProcess runInstalledHelper() { return runHelper(makeHelper(kInstallFolder)); }

std::vector<pid_t> processesOf(const std::string& path) {
  namespace fs = std::filesystem;
  std::vector<pid_t> processes;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    std::error_code error;
    const std::string name = entry.path().filename();
    const fs::path executable = fs::read_symlink(entry.path() / "exe", error);
    // One that runs from a copy that was moved aside is a process of the application still.
    const bool isThere = !error && (executable.string().starts_with(executableOf(path)) ||
                                    clientcomm::pathBeforeRemoval(clientcomm::bundleOfExecutable(
                                        executable.string())) == path);
    if (isThere && name.find_first_not_of("0123456789") == std::string::npos) {
      processes.push_back(std::stoi(name));
    }
  }
  return processes;
}

}  // namespace support
