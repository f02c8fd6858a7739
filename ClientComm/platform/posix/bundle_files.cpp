#include "ClientComm/platform/posix/bundle_files.h"

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/path.h"

namespace clientcomm {
namespace {

std::string nameOfExecutable(const Bundle& bundle) {
  if (auto name = bundle.infoString(kCFBundleExecutableKey)) return *std::move(name);
  return std::string(withoutApplicationExtension(lastPathComponent(bundle.bundlePath())));
}

// Not the time of the last status change, which a further hard link sets.
std::string stateOfFile(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return "-";
  std::string state;
  for (const auto number :
       {static_cast<std::int64_t>(status.st_dev), static_cast<std::int64_t>(status.st_ino),
        static_cast<std::int64_t>(status.st_size), static_cast<std::int64_t>(status.st_mtim.tv_sec),
        static_cast<std::int64_t>(status.st_mtim.tv_nsec)}) {
    state += std::to_string(number) + ":";
  }
  return state;
}

}  // namespace

bool isMainExecutable(const Bundle& bundle, const std::string& executable) {
  if (lastPathComponent(executable) == nameOfExecutable(bundle)) return true;
  // The kernel gives the target where the executable is a symbolic link inside the bundle.
  const OptionalString named = bundle.executablePath();
  std::error_code error;
  return named && std::filesystem::canonical(*named, error) == executable && !error;
}

std::string stateOfBundle(const std::string& path, const std::string& executable) {
  return stateOfFile(stringByAppendingPathComponent(path, kInfoFile)) + " " +
         stateOfFile(executable);
}

}  // namespace clientcomm
