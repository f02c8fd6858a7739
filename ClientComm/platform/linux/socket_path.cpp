#include "ClientComm/platform/linux/socket_path.h"

#include <algorithm>
#include <cstring>

#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/runtime_folder.h"

namespace clientcomm {

SocketPath::SocketPath(const std::string& name) {
  address_.sun_family = AF_UNIX;
  const std::string& folder = runtimeFolderPath();
  if (folder.size() + 1 + name.size() < sizeof address_.sun_path) {
    char* const end = std::copy(folder.begin(), folder.end(), address_.sun_path);
    *end = '/';
    std::copy(name.begin(), name.end(), end + 1);
    return;
  }
  folder_ = openRuntimeFolder(IfMissing::kFail);
  isValid_ = folder_.isValid();
  if (!isValid_) return;
  const std::string path = std::string(ProcPath::ofDescriptor(folder_.get()).view()) + "/" + name;
  std::memcpy(address_.sun_path, path.data(), path.size());
}

}  // namespace clientcomm
