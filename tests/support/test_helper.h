#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "ClientComm/platform/property_list.h"
#include "tests/support/child_process.h"

/// The helper that the test's own bundle names in its Info dictionary, and what the two leave for
/// each other in files.
namespace support {

inline constexpr char kHelperName[] = "Test Helper";

/// A role for a helper that opens itself to events but never looks at one.
inline constexpr char kIdleRole[] = "idle";

/// Folders, relative to the private one, in which the helper lies.
inline constexpr char kResourceFolder[] = "TestHost.app/Contents/Resources";
inline constexpr char kInstallFolder[] = "install";

/// Makes an idle helper of this version in `folder`. @return its path.
std::string makeHelper(const std::string& folder, const std::string& version = "1.0");

/// Where the installed helper lies.
std::string installedHelperPath();

/// Runs the idle helper at `path` as a child of the test; it is open to events by then.
ChildProcess runHelper(const std::string& path);

/// Makes an installed helper and runs it in the same way.
ChildProcess runInstalledHelper();

/// The processes that run the executable of the application at `path`.
std::vector<pid_t> processesOf(const std::string& path);

/// The file of the user's settings for this bundle identifier.
std::string preferencesPath(const std::string& identifier);

/// The host's user defaults as their file stands now; empty when there is none.
clientcomm::PropertyListDictionary hostDefaults();

/// Writes the helper's own preferences, as the helper does.
void writeHelperPreferences(const clientcomm::PropertyListDictionary& values);

}  // namespace support
