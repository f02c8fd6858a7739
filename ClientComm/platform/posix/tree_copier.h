#pragma once

#include "ClientComm/platform/status.h"

namespace clientcomm {

/// Copies the entry `name` of the directory `source` to `newName` in the directory `target`.
/// @return the failure, its path relative to the directory that it is in; what was made is left in
///         place then.
Status copyTree(int source, const char* name, int target, const char* newName);

}  // namespace clientcomm
