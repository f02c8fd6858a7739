#include "tools/clientcomm/check/examination.h"

#include <unistd.h>

#include <array>
#include <climits>

#include "ClientComm/platform/path.h"

namespace clientcomm::tool {
namespace {

// As text, without resolving links: a host goes by the path that it was launched by.
std::string absolutePath(const std::string& path) {
  std::string stripped(withoutTrailingSlashes(path));
  std::array<char, PATH_MAX> folder;
  if (stripped.starts_with('/') || getcwd(folder.data(), folder.size()) == nullptr) {
    return stripped;
  }
  return stringByAppendingPathComponent(folder.data(), stripped);
}

}  // namespace

Examination examine(const std::string& path) {
  Examination examination(absolutePath(path));
  checkHost(examination);
  checkHelper(examination);
  checkInstallation(examination);
  checkRuntime(examination);
  checkProcesses(examination);
  return examination;
}

}  // namespace clientcomm::tool
