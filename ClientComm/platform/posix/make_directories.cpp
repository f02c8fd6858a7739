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

int makeDirectories(const std::string& path, mode_t mode) {
  int code = statusOf(mkdir(path.c_str(), mode));
  if (code == ENOENT && !path.empty()) {
    const std::string parent = splitPath(path).directory;
    if (parent == path) return code;
    if (const int status = makeDirectories(parent, mode)) return status;
    code = statusOf(mkdir(path.c_str(), mode));
  }
  return code != 0 && isDirectory(path) ? 0 : code;
}

}  // namespace clientcomm
