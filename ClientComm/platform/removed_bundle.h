#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/platform/error.h"

/// The removal of an installed bundle in one step: it is moved to a private place beside its own,
/// and its files are deleted later. A process that runs from it keeps its `kBundlePathKey`.
namespace clientcomm {

/// Moves what is at `path` to a private place beside it. Nothing is at `path` afterwards.
/// @param place receives the path to delete later, with `removeItemAtPath`.
/// @return nothing on success, otherwise the error; everything is as before then.
std::optional<Error> moveAside(const std::string& path, std::string& place);

/// The places that hold, or held, what was moved aside from `path` and is not deleted yet.
std::vector<std::string> placesMovedAsideFrom(const std::string& path);

/// IDs of the processes whose executable is below the directory at `path` now. Processes whose
/// executable this one may not see are not among them.
/// @return nothing when the processes cannot be read.
std::optional<std::vector<std::int32_t>> processesRunningBelow(const std::string& path);

}  // namespace clientcomm
