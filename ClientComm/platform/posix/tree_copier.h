#pragma once

namespace clientcomm {

/// Copies the entry `name` of the directory `source` to `newName` in the directory `target`.
/// @return 0, or the error; what was made is left in place then.
int copyTree(int source, const char* name, int target, const char* newName);

}  // namespace clientcomm
