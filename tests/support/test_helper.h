#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/helper_files.h"

/// The helper that the test's own bundle names in its Info dictionary, and what the two leave for
/// each other in files.
namespace support {

/// A role for a helper that opens itself to events but never looks at one.
inline constexpr char kIdleRole[] = "idle";

/// Makes an idle helper of this version in `folder`. @return its path.
std::string makeHelper(const std::string& folder, const std::string& version = "1.0");

/// Runs the idle helper at `path` as a child of the test; it is open to events by then.
ChildProcess runHelper(const std::string& path);

/// Makes an installed helper and runs it in the same way.
ChildProcess runInstalledHelper();

/// The processes that run the executable of the application at `path`.
std::vector<pid_t> processesOf(const std::string& path);

}  // namespace support
