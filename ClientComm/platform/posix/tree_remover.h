#pragma once

namespace clientcomm {

/// Removes the entry `name` of the directory `parent`, a tree with all that it holds. All
/// operations are relative to an open directory fd and use O_NOFOLLOW. An entry that is gone
/// already is no error; another process may be removing it too.
/// @return 0, or the first error; the rest is removed all the same.
int removeTree(int parent, const char* name);

}  // namespace clientcomm
