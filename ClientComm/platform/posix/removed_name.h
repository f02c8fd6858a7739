#pragma once

#include <string>
#include <string_view>

/// The names of the private places to which bundles are moved before their files are deleted.
/// "/folder/A.app" moves to "/folder/.A.app.removed-1-2/A.app", or to "/folder/.A.app.removed-1-2"
/// where its ".." cannot be changed.
namespace clientcomm {

/// A name that this process has not used before, for what was moved away from `name`.
std::string nextRemovedName(std::string_view name);

/// The name, up to 200 bytes of it, that the directory entry `entry` is a place for; empty where it
/// is none.
std::string_view nameBeforeRemoval(std::string_view entry) noexcept;

/// Whether the directory entry `entry` is a place for what was moved away from `name`.
bool isRemovedName(std::string_view entry, std::string_view name);

/// The path that the bundle at `path` was moved away from; `path` where it was not moved.
std::string pathBeforeRemoval(std::string_view path);

}  // namespace clientcomm
