#include "platform/linux/launch_record.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "platform/linux/check_in.h"

namespace platform {
namespace {

struct LaunchRecord {
  std::string identifier;
  pid_t pid = 0;
  std::chrono::steady_clock::time_point time;
  std::optional<std::uint64_t>
      startTime;  ///< Of the process, so that no later one of its ID counts.
  bool isReached = false;
};

// One that has ended, and that its parent has not waited for, has none any more.
bool hasExecutable(pid_t pid) noexcept {
  std::array<char, 32> link = {};
  std::snprintf(link.data(), link.size(), "/proc/%d/exe", pid);
  char byte = 0;
  return readlink(link.data(), &byte, 1) >= 0 || errno != ENOENT;
}

LaunchRecord& lastLaunch() {
  static auto* const record = new LaunchRecord;
  return *record;
}

}  // namespace

void noteLaunch(const std::string& identifier, pid_t pid) {
  lastLaunch() = {identifier, pid, std::chrono::steady_clock::now(), processStartTime(pid), false};
}

bool isLastLaunchRunning(const std::string& identifier) noexcept {
  const LaunchRecord& launch = lastLaunch();
  return launch.startTime && launch.identifier == identifier &&
         processStartTime(launch.pid) == launch.startTime && hasExecutable(launch.pid);
}

bool isStillLaunching(const std::string& identifier) noexcept {
  const LaunchRecord& launch = lastLaunch();
  return !launch.isReached && isLastLaunchRunning(identifier) &&
         std::chrono::steady_clock::now() - launch.time < kLaunchLimit;
}

void noteReached(const std::string& identifier) noexcept {
  LaunchRecord& launch = lastLaunch();
  if (!launch.isReached && launch.identifier == identifier) launch.isReached = true;
}

}  // namespace platform
