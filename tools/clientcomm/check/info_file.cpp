#include "tools/clientcomm/check/info_file.h"

#include <sys/stat.h>

#include <cstring>
#include <optional>

#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/linux/bundle_identities.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/property_list_file.h"

namespace clientcomm::tool {
namespace {

// Other applications read it only where it is a small file of its own, so that no bundle can hold
// them up.
void checkForOthers(const std::string& path, Findings& findings) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return;
  if (S_ISLNK(status.st_mode)) {
    findings.add(
        Cause::kInfoFileRefused, path,
        "It is a symbolic link. Other applications do not read it, so they cannot identify "
        "this one and do not carry its calls out.",
        "Put the file itself into the bundle.");
  } else if (static_cast<std::uint64_t>(status.st_size) > kLargestInfo) {
    findings.add(Cause::kInfoFileRefused, path,
                 "It is larger than 64 KiB. Other applications do not read it, so they cannot "
                 "identify this one and do not carry its calls out.",
                 "Move the large values to another file.");
  }
}

}  // namespace

bool checkInfoFile(const std::string& bundlePath, Findings& findings) {
  const std::string path = stringByAppendingPathComponent(bundlePath, kInfoFile);
  std::optional<PropertyListDictionary> info;
  const Status read = readDictionaryFile(path, info);
  if (!read.isOk()) {
    findings.add(Cause::kPropertyListUnreadable, path,
                 std::string("It cannot be read: ") + std::strerror(read.code()) + ".",
                 "Make it a readable file.");
    return false;
  }
  if (!info) {
    findings.add(Cause::kPropertyListMalformed, path,
                 "It is no well-formed property list with a dictionary, and counts as missing.",
                 "Correct it; \"xmllint --noout\" shows the place.");
    return false;
  }
  checkForOthers(path, findings);
  return true;
}

}  // namespace clientcomm::tool
