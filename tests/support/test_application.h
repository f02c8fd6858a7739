#pragma once

#include <string>
#include <vector>

#include "ClientComm/platform/property_list.h"
#include "tests/support/child_process.h"

/// Applications for tests: bundles in the private folder whose executable is the test program
/// itself. What such an application does is a role that the test program registers; which one, its
/// Info.plist says under "TestRole".
namespace support {

/// Registers what an application of the role `name` does; its result is the exit status.
class Role {
 public:
  using Body = int (*)(const std::vector<std::string>& arguments);
  Role(const char* name, Body body);
};

/// Runs the role `name` in this process. @return its result.
int runRole(const char* name, const std::vector<std::string>& arguments);

/// Runs the role of this process, if it has one. @return false when it has none.
bool runRole(const std::vector<std::string>& arguments, int& exitStatus);

/// Makes the bundle <sandbox>/`folder`/`name`.app. `extra` adds to or replaces the Info keys
/// CFBundleIdentifier, CFBundleName, CFBundleExecutable, CFBundleVersion ("1.0") and TestRole.
/// @return its path.
std::string makeApplication(const std::string& name, const std::string& identifier,
                            const std::string& role,
                            const clientcomm::PropertyListDictionary& extra = {},
                            const std::string& folder = "apps");

/// Path of the executable in the bundle at `application`.
std::string executableOf(const std::string& application);

/// Runs the application as a child of the test; it executes the application's own file by then.
ChildProcess runApplication(const std::string& application,
                            const std::vector<std::string>& arguments = {});

/// Waits until an application with this bundle identifier takes events.
bool waitUntilReachable(const std::string& identifier);

/// A role for everybody: "echo" registers the class "Echo", which answers `say:` with its argument,
/// keeps what `note:` brings, gives that back, one per line, for `notes`, tells the caller of the
/// last call for `caller`, its bits per word for `wordSize`, `sleep:` milliseconds, `fork` into a
/// child that lives on, and `quit`.
inline constexpr const char kEchoRole[] = "echo";

/// Argument with which an echo application sends an event to nobody five times a second.
inline constexpr const char kTicking[] = "ticking";

}  // namespace support
