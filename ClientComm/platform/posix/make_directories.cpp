#include "ClientComm/platform/posix/make_directories.h"

#include <sys/stat.h>

#include <cerrno>

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/io.h"

namespace clientcomm {
namespace {

bool isDirectory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

Status makeDirectories(const std::string& path, mode_t mode) {
  Status status = fileStatus(mkdir(path.c_str(), mode), "mkdir", path);
  if (status.code() == ENOENT && !path.empty()) {
    const std::string parent = splitPath(path).directory;
    if (parent == path) return status;
    if (Status above = makeDirectories(parent, mode); !above.isOk()) return above;
    status = fileStatus(mkdir(path.c_str(), mode), "mkdir", path);
  }
  if (!status.isOk() && isDirectory(path)) return {};
  return status;
}

}  // namespace clientcomm
