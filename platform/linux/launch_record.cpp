#include "platform/linux/launch_record.h"

#include <cerrno>
#include <csignal>

namespace platform {
namespace {

struct LaunchRecord {
  std::string identifier;
  pid_t pid = 0;
  std::chrono::steady_clock::time_point time;
};

LaunchRecord& lastLaunch() {
  static auto* const record = new LaunchRecord;
  return *record;
}

}  // namespace

void noteLaunch(const std::string& identifier, pid_t pid) {
  lastLaunch() = {identifier, pid, std::chrono::steady_clock::now()};
}

bool isStillLaunching(const std::string& identifier) noexcept {
  const LaunchRecord& launch = lastLaunch();
  if (launch.pid == 0 || launch.identifier != identifier) return false;
  const bool isRunning = kill(launch.pid, 0) == 0 || errno != ESRCH;
  return isRunning && std::chrono::steady_clock::now() - launch.time < kLaunchLimit;
}

void noteReached(const std::string& identifier) noexcept {
  LaunchRecord& launch = lastLaunch();
  if (launch.pid != 0 && launch.identifier == identifier) launch.pid = 0;
}

}  // namespace platform
