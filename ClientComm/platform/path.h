#pragma once

#include <string>
#include <string_view>

/// The text of paths; nothing here looks at the file system. Paths are bytes.
namespace clientcomm {

/// `path` and `component` joined by one "/". Repeated slashes anywhere in either become one, and
/// none is left at the end, so that two spellings of a path join to the same text. "." and ".."
/// stay as they are.
std::string stringByAppendingPathComponent(std::string_view path, std::string_view component);

/// What follows the last "/" of `path`, trailing slashes not counted.
std::string lastPathComponent(std::string_view path);

/// What follows the last "." of the last path component; empty when there is none, or when the
/// name begins with its only ".".
std::string pathExtension(std::string_view path);

/// `path` without the slashes at its end; the root stays "/".
std::string_view withoutTrailingSlashes(std::string_view path) noexcept;

struct SplitPath {
  std::string directory;
  std::string name;
};

/// `path` without its last component, and that component, trailing slashes not counted.
SplitPath splitPath(std::string_view path);

}  // namespace clientcomm
