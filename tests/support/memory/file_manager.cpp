#include "ClientComm/platform/file_manager.h"

#include <cerrno>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/test_sandbox.h"

namespace clientcomm {
namespace {

support::MemoryFiles& files() { return support::MemorySystem::current().files; }

std::optional<Error> errorFrom(int code, const std::string& path) {
  if (code == 0) return std::nullopt;
  return Error{kFileErrorDomain, code, {{"FilePath", path}}};
}

}  // namespace

bool fileExistsAtPath(const std::string& path) noexcept { return files().exists(path); }

// There is one user, and no superuser.
bool mayCreateItemAtPath(const std::string& /*path*/) noexcept { return true; }

std::optional<Error> createDirectoryAtPath(const std::string& path) {
  return errorFrom(files().makeFolder(path), path);
}

std::optional<Error> removeItemAtPath(const std::string& path) {
  const int code = files().remove(path);
  return errorFrom(code == ENOENT ? 0 : code, path);
}

std::optional<Error> copyPath(const std::string& source, const std::string& destination) {
  return errorFrom(files().copy(source, destination), destination);
}

// A copy in memory is never interrupted.
void removeUnfinishedCopies(const std::string& /*destination*/) {}

std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path) {
  return files().list(path);
}

std::string stringByExpandingTildeInPath(const std::string& path) {
  if (path != "~" && !path.starts_with("~/")) return path;
  return support::sandbox() + "/home" + path.substr(1);
}

}  // namespace clientcomm
