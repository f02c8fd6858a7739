#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace clientcomm::tool {

/// What an ELF file says about how it is loaded. Nothing of it is executed.
struct ElfFile {
  bool is64Bit = false;
  bool isBigEndian = false;
  std::uint16_t machine = 0;           ///< EM_... of <elf.h>.
  std::string loader;                  ///< Of a program that is linked dynamically; else empty.
  std::vector<std::string> libraries;  ///< The names of the shared libraries that it asks for.
  std::string runPath;                 ///< DT_RUNPATH.
  std::string oldRunPath;              ///< DT_RPATH.
};

/// Reads the file at `path`. Of one for the other byte order, only the first three members.
/// @return nothing when it cannot be read, or is no well-formed ELF file.
std::optional<ElfFile> readElfFile(const std::string& path);

/// Name of an architecture: "x86-64", "ARM, 64-bit".
std::string architectureOf(const ElfFile& file);

/// Whether the kernel of this machine runs programs of that architecture, without an emulator.
bool isArchitectureOfThisMachine(const ElfFile& file);

}  // namespace clientcomm::tool
