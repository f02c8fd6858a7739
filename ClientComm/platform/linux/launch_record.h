#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "ClientComm/platform/linux/launch_record_format.h"
#include "ClientComm/platform/status.h"

/// What is remembered of launches: by this process, that of its last one, since an event for an
/// application that is still starting waits for it; by all processes of the user, in the runtime
/// folder, that of each bundle whose launch has not led to an open endpoint.
namespace clientcomm {

/// A launch that has not led to an open endpoint, as far as is known.
struct LaunchRecord {
  std::string bundlePath;
  std::string bundleState;  ///< Of the bundle at the launch; see `stateOfBundle`.
  pid_t pid = 0;
  std::uint64_t startTime = 0;  ///< Of the process; 0 when it had ended before it was asked for.
  std::chrono::milliseconds time{};  ///< Of the launch, since boot.
  int failures = 0;                  ///< Launches before this one that have failed in a row.
  std::uint64_t pidNamespace = 0;    ///< Of the launcher, as in a process record; 0 when unknown.
};

/// What to do about an application that is not known to run.
enum class LaunchAdvice {
  kLaunch,
  kIsStarting,  ///< It was launched less than `kLaunchLimit` ago.
  kIsHung,      ///< Its process lives and has not opened to events; its bundle is unchanged.
  kBackOff,     ///< It has ended too often without having opened to events.
};

/// The last launch of the bundle at `path`; nothing when there was none, or it has led to an open
/// endpoint. Call with the runtime folder locked.
std::optional<LaunchRecord> lastLaunchOf(int folder, const std::string& path);

/// @param record the last launch, if there was one; @param bundleState the bundle's state now.
LaunchAdvice launchAdvice(const std::optional<LaunchRecord>& record,
                          const std::string& bundleState) noexcept;

/// Remembers a launch of the application `identifier` (empty when it has none). Call with the
/// runtime folder locked. This process remembers it also where the record cannot be written.
Status noteLaunch(int folder, const std::string& identifier, const LaunchRecord& record);

/// Removes the record of the launch that the process `pid` was started by: it opens to events.
/// @return success also where there is no such record.
Status forgetLaunch(int folder, const std::string& bundlePath, pid_t pid);

/// Whether this process launched the application `identifier` less than `kLaunchLimit` ago, it
/// still runs, and has not been reached since.
bool isStillLaunching(const std::string& identifier) noexcept;

/// Ends the grace of the application `identifier`: it has been reached.
void noteReached(const std::string& identifier) noexcept;

}  // namespace clientcomm
