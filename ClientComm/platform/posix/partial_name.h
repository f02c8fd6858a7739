#pragma once

#include <string>
#include <string_view>

/// Names of what is being built beside its destination. The process's ID in the name tells the
/// next one whether the builder is still at work.
namespace clientcomm {

/// What the names of all partials of the destination `name` begin with.
std::string partialPrefix(std::string_view name);

/// A name that this process has not used before.
std::string nextPartialName(std::string_view name);

/// Whether the directory entry `entry` is a partial of a process, running or not.
bool isPartial(std::string_view entry, std::string_view prefix);

/// Whether the directory entry `entry` is a partial whose process does not exist any more.
bool isAbandonedPartial(std::string_view entry, std::string_view prefix);

/// Removes the abandoned partials of the file `name` from the open `directory`, as far as possible:
/// they take up space and hinder nothing.
void removeAbandonedPartialFiles(int directory, std::string_view name);

}  // namespace clientcomm
