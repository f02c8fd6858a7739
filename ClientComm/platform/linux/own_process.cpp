#include "ClientComm/platform/own_process.h"

#include <sys/auxv.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <string_view>

#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/linux/executable_link.h"
#include "ClientComm/platform/linux/proc_path.h"

namespace clientcomm {

std::string ownExecutablePath() {
  std::array<char, PATH_MAX> text;
  const ssize_t length =
      readlink(ProcPath::ofThisProcess("/exe").c_str(), text.data(), text.size());
  if (length <= 0) return {};
  std::string path(text.data(), static_cast<std::size_t>(length));
  if (path.ends_with(kRemovedMark) && !fileExistsAtPath(path)) {
    path.resize(path.size() - kRemovedMark.size());
  }
  return path;
}

std::string ownLaunchPath() {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel passes the pointer as a number
  const auto* const name = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  return name != nullptr && *name == '/' ? name : "";
}

bool isSetuidProcess() noexcept { return getauxval(AT_SECURE) != 0; }

}  // namespace clientcomm
