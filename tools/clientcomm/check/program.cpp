#include "tools/clientcomm/check/program.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>

#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/path.h"
#include "tools/clientcomm/check/elf_file.h"
#include "tools/clientcomm/check/shared_libraries.h"

namespace clientcomm::tool {
namespace {

// The name that the bundle's executable has, or has to have.
std::string executableName(const Bundle& bundle) {
  if (OptionalString name = bundle.infoString(kCFBundleExecutableKey)) return *std::move(name);
  return std::string(withoutApplicationExtension(lastPathComponent(bundle.bundlePath())));
}

std::string pathIn(const Bundle& bundle, std::string_view folder, const std::string& name) {
  return stringByAppendingPathComponent(stringByAppendingPathComponent(bundle.bundlePath(), folder),
                                        name);
}

bool isMountedNoexec(const std::string& path) {
  struct statvfs system = {};
  return statvfs(path.c_str(), &system) == 0 && (system.f_flag & ST_NOEXEC) != 0;
}

// Whether this user may execute the file by its mode. On a file system without programs the system
// says no whatever the mode is.
bool isExecutable(const std::string& path) {
  struct stat status = {};
  if (access(path.c_str(), X_OK) == 0) return true;
  return isMountedNoexec(path) && stat(path.c_str(), &status) == 0 && (status.st_mode & 0111) != 0;
}

bool isRegularFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// The bundle's executable; nothing, with a finding, where it has none.
OptionalString findExecutable(const Bundle& bundle, Findings& findings) {
  const std::string name = executableName(bundle);
  OptionalString found;
  for (const std::string_view folder : kExecutableFolders) {
    std::string path = pathIn(bundle, folder, name);
    if (name.empty() || name.find('/') != std::string::npos || !isRegularFile(path)) continue;
    if (isExecutable(path)) return path;
    if (!found) found = std::move(path);
  }
  if (found) {
    findings.add(Cause::kExecutableBitMissing, *found,
                 "The executable may not be executed by this user.",
                 "Set its executable bits: chmod 755.");
  } else {
    findings.add(Cause::kExecutableMissing, pathIn(bundle, kExecutableFolders[0], name),
                 "The bundle has no executable file of the name that its Info.plist says.",
                 "Put it there, or correct CFBundleExecutable.");
  }
  return std::nullopt;
}

std::string firstBytes(const std::string& path) {
  std::string bytes(2, '\0');
  std::ifstream(path, std::ios::binary).read(bytes.data(), 2);
  return bytes;
}

void addNoProgram(const std::string& path, Findings& findings) {
  if (firstBytes(path) == "#!") {
    findings.add(Cause::kExecutableIsScript, path,
                 "The executable is a script. A process is identified by the program that it runs, "
                 "which is the interpreter, so it is no running application.",
                 "Put a program into the bundle; for Python there is a launcher.");
    return;
  }
  findings.add(Cause::kExecutableNotRun, path,
               "The executable is no well-formed program (ELF), so the system does not execute it.",
               "Build or copy it again.");
}

void checkLibraries(const std::string& path, const ElfFile& program, ProgramKind kind,
                    Findings& findings) {
  const char* const folders = kind == ProgramKind::kHost ? std::getenv("LD_LIBRARY_PATH") : nullptr;
  const auto places = LibraryPlaces::ofSystem(folders != nullptr ? folders : "");
  for (const MissingLibrary& missing : missingLibraries(path, program, places)) {
    findings.add(Cause::kLibraryMissing, path,
                 "The library " + missing.name + " is not found; " +
                     (missing.neededBy == path ? "the program" : missing.neededBy) +
                     " needs it. The program ends at once.",
                 "Install it, or put a copy into Contents/Frameworks and link with the run path "
                 "$ORIGIN/../Frameworks.");
  }
}

}  // namespace

void checkProgram(const Bundle& bundle, ProgramKind kind, Findings& findings) {
  const OptionalString path = findExecutable(bundle, findings);
  if (!path) return;
  if (kind == ProgramKind::kHost) checkMountOfPrograms(*path, findings);
  const auto program = readElfFile(*path);
  if (!program) return addNoProgram(*path, findings);
  if (!isArchitectureOfThisMachine(*program)) {
    findings.add(Cause::kArchitectureUnsupported, *path,
                 "The program is for another processor: " + architectureOf(*program) + ".",
                 "Bring a program for this machine.");
    return;
  }
  if (!program->loader.empty() && !fileExistsAtPath(program->loader)) {
    findings.add(Cause::kLoaderMissing, *path,
                 "Its dynamic loader " + program->loader +
                     " is not installed, so the system does not execute it.",
                 "Install the C library that it was built with.");
    return;
  }
  checkLibraries(*path, *program, kind, findings);
}

void checkMountOfPrograms(const std::string& path, Findings& findings) {
  if (!isMountedNoexec(path)) return;
  findings.add(Cause::kMountedNoexec, path,
               "The file system is mounted with noexec: no program is executed from it.",
               "Choose another folder, or mount it without noexec.");
}

}  // namespace clientcomm::tool
