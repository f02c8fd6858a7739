#pragma once

#include <string>
#include <vector>

/// The environment of a launched application: the host's, without what belongs to the host's own
/// packaging. The list, with a reason for each entry, is in the source file.
namespace clientcomm {

/// The entries that a launched application gets of `environment`, a null-terminated array of
/// "NAME=value"; null means an empty one.
std::vector<std::string> launchEnvironment(const char* const* environment);

}  // namespace clientcomm
