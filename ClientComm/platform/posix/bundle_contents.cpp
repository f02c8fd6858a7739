#include "ClientComm/platform/bundle_contents.h"

#include <sys/stat.h>
#include <unistd.h>

#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/property_list_file.h"

namespace clientcomm {

bool isExecutableFile(const std::string& path) noexcept {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

bool isSameBundle(const std::string& path, const std::string& other) noexcept {
  if (path == other) return true;
  struct stat first = {};
  struct stat second = {};
  return stat(path.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

InfoReading readInfoDictionary(const std::string& path,
                               std::optional<PropertyListDictionary>& info) {
  return mayPass(readDictionaryFile(path, info).code()) ? InfoReading::kMayPass
                                                        : InfoReading::kDone;
}

}  // namespace clientcomm
