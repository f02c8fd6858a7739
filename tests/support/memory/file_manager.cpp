#include "ClientComm/platform/file_manager.h"

#include <cerrno>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/test_sandbox.h"

namespace clientcomm {
namespace {

support::MemoryFiles& files() { return support::MemorySystem::current().files; }

}  // namespace

bool fileExistsAtPath(const std::string& path) noexcept { return files().exists(path); }

// There is one user, and no superuser.
bool mayCreateItemAtPath(const std::string& /*path*/) noexcept { return true; }

std::optional<Error> createDirectoryAtPath(const std::string& path) {
  return makeDirectoryAtPath(path).error();
}

Status makeDirectoryAtPath(const std::string& path) {
  return Status::ofFile(files().makeFolder(path), "mkdir", path);
}

Status removeItemAtPath(const std::string& path) {
  const int code = files().remove(path);
  return Status::ofFile(code == ENOENT ? 0 : code, "unlink", path);
}

Status copyPath(const std::string& source, const std::string& destination) {
  return Status::ofFile(files().copy(source, destination), "copy", destination);
}

// A copy in memory is never interrupted.
Status removeUnfinishedCopies(const std::string& /*destination*/) { return {}; }

Status listDirectoryAtPath(const std::string& path, std::vector<std::string>& names) {
  names = files().list(path);
  return Status::ofFile(files().isFolder(path) ? 0 : ENOENT, "opendir", path);
}

std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path) {
  return files().list(path);
}

std::string stringByExpandingTildeInPath(const std::string& path) {
  if (path != "~" && !path.starts_with("~/")) return path;
  return support::sandbox() + "/home" + path.substr(1);
}

}  // namespace clientcomm
