#pragma once

#include <span>

namespace clientcomm::tool {

/// A file of a new project. Its text has "@NAME@", "@IDENTIFIER@" and "@VERSION@", the library's.
struct ProjectFile {
  const char* name;
  const char* text;
};

/// A host that brings a helper of its own.
std::span<const ProjectFile> hostFiles() noexcept;

/// A helper for any host.
std::span<const ProjectFile> helperFiles() noexcept;

}  // namespace clientcomm::tool
