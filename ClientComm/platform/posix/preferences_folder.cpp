#include "ClientComm/platform/posix/preferences_folder.h"

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/make_directories.h"
#include "ClientComm/platform/posix/preferences_format.h"
#include "ClientComm/platform/posix/user_folders.h"

namespace clientcomm {

std::string preferencesFolder() {
  return stringByAppendingPathComponent(configDirectory(), kPreferencesFolderName);
}

bool makePreferencesFolder() {
  const std::string folder = preferencesFolder();
  return mayCreateAt(folder) && makeDirectories(folder, 0700) == 0;
}

}  // namespace clientcomm
