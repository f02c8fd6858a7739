#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "ClientComm/platform/linux/bundle_identities.h"

/// Which processes count as running applications. A process does that belongs to this user, runs
/// the executable of its bundle (CFBundleExecutable), and takes events or was started less than
/// `kLaunchLimit` ago. This process always counts.
namespace clientcomm {

/// Whether an application runs.
enum class Presence {
  kAbsent,
  kRunning,
  kUnreachable,  ///< It takes events, but in a runtime folder that is not this process's.
  kUnknown,      ///< The process table cannot be read.
};

/// A process of this user that runs a program in an application bundle.
struct BundleProcess {
  std::uint64_t startTime = 0;
  /// With the path that the application was launched by, where it is known.
  BundleIdentity identity;
  Presence presence = Presence::kAbsent;  ///< Of the application, by this process.
};

/// The start time of such a process; nothing when `pid` is none. Costs little for other processes.
std::optional<std::uint64_t> startTimeOfBundleProcess(pid_t pid);

/// What is known of the process `pid`; nothing when it is another user's or runs no bundle.
std::optional<BundleProcess> bundleProcess(pid_t pid);

/// Whether the application of the bundle at `bundlePath`, with this identifier (nil when it has
/// none), runs. A process that cannot be seen from here counts by its endpoint. Where one system
/// call that fails could have hidden a process, the look is taken again: a second process is worse.
Presence presenceOf(const std::string& bundlePath, const OptionalString& identifier);

}  // namespace clientcomm
