#include "ClientComm/platform/posix/preferences_folder.h"

#include <cerrno>

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/make_directories.h"
#include "ClientComm/platform/posix/preferences_format.h"
#include "ClientComm/platform/posix/user_folders.h"

namespace clientcomm {

std::string preferencesFolder() {
  return stringByAppendingPathComponent(configDirectory(), kPreferencesFolderName);
}

Status makePreferencesFolder() {
  const std::string folder = preferencesFolder();
  if (!mayCreateAt(folder)) return Status::ofFile(EPERM, "mayCreateAt", folder);
  return makeDirectories(folder, 0700);
}

}  // namespace clientcomm
