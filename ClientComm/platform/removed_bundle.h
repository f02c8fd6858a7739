#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ClientComm/platform/status.h"

/// The removal of an installed bundle in one step: it is moved to a private place beside its own,
/// and its files are deleted later. A process that runs from it keeps its `kBundlePathKey`.
namespace clientcomm {

/// Moves what is at `path` to a private place beside it. Nothing is at `path` afterwards.
/// @param place receives the path to delete later, with `removeItemAtPath`.
/// @return the failure; everything is as before then.
Status moveAside(const std::string& path, std::string& place);

/// The places that hold, or held, what was moved aside from `path` and is not deleted yet.
Status placesMovedAsideFrom(const std::string& path, std::vector<std::string>& places);

/// IDs of the processes whose executable is below the directory at `path` now. Processes whose
/// executable this one may not see are not among them.
/// @return a failure when the processes cannot be read.
Status processesRunningBelow(const std::string& path, std::vector<std::int32_t>& processes);

}  // namespace clientcomm
