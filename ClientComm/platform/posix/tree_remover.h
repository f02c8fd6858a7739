#pragma once

#include "ClientComm/platform/status.h"

namespace clientcomm {

/// Removes the entry `name` of the directory `parent`, a tree with all that it holds. All
/// operations are relative to an open directory fd and use O_NOFOLLOW. An entry that is gone
/// already is no error; another process may be removing it too.
/// @return the first failure, its path relative to `parent`; the rest is removed all the same.
Status removeTree(int parent, const char* name);

}  // namespace clientcomm
