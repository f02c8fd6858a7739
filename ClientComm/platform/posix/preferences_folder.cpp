#include "ClientComm/platform/posix/preferences_folder.h"

#include <glib.h>

#include <memory>

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/user_folders.h"

namespace clientcomm {

std::string preferencesFolder() {
  return stringByAppendingPathComponent(configDirectory(), "Preferences");
}

bool makePreferencesFolder() {
  const std::string folder = preferencesFolder();
  return mayCreateAt(folder) && g_mkdir_with_parents(folder.c_str(), 0700) == 0;
}

std::string digestOf(std::string_view text) {
  const std::unique_ptr<char, decltype(&g_free)> digest(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(text.data()),
                                  text.size()),
      &g_free);
  return digest.get();
}

}  // namespace clientcomm
