#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/clientcomm/check/elf_file.h"

namespace clientcomm::tool {

/// Where the dynamic loader looks for libraries besides the places that a file names.
struct LibraryPlaces {
  std::vector<std::string> environment;           ///< LD_LIBRARY_PATH.
  std::multimap<std::string, std::string> cache;  ///< Path of a library by its name.
  std::vector<std::string> folders;               ///< The loader's own.

  /// Those of this system: /etc/ld.so.cache and the loader's own folders.
  /// @param environment value of LD_LIBRARY_PATH, empty for none.
  static LibraryPlaces ofSystem(const std::string& environment);
};

/// A library that the loader would not find.
struct MissingLibrary {
  std::string name;
  std::string neededBy;  ///< The program, or the library that asks for it.
};

/// Finds the libraries of the program at `path`, and theirs, as the dynamic loader does, and tells
/// which are missing. Nothing is executed: the program may be somebody else's.
std::vector<MissingLibrary> missingLibraries(const std::string& path, const ElfFile& program,
                                             const LibraryPlaces& places);

}  // namespace clientcomm::tool
