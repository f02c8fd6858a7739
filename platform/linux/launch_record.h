#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

/// The application that this process has launched last. An event that is sent to it before it takes
/// events waits for it, as the system queues events for an application that is still starting.
namespace platform {

/// How long an application may take from its launch until it takes events.
inline constexpr std::chrono::milliseconds kLaunchLimit = std::chrono::seconds(5);

/// Notes that the process `pid` has just been launched as the application `identifier`.
void noteLaunch(const std::string& identifier, pid_t pid);

/// Whether the application `identifier` was launched less than `kLaunchLimit` ago, still runs, and
/// has not been reached since.
bool isStillLaunching(const std::string& identifier) noexcept;

/// Whether the process that was launched last, as the application `identifier`, still runs. It may
/// be one that nobody takes for that application: a script, or an executable that lies outside it.
bool isLastLaunchRunning(const std::string& identifier) noexcept;

/// Ends the grace of the application `identifier`: it has been reached.
void noteReached(const std::string& identifier) noexcept;

}  // namespace platform
