#pragma once

#include <string>

#include "ClientComm/platform/status.h"

namespace clientcomm {

/// The folder of the user's settings files, "Preferences" in the user's configuration folder. Only
/// this library writes there.
std::string preferencesFolder();

/// Makes the folder where it is missing, for the user alone.
/// @return EPERM when this process makes nothing there; see `mayCreateAt`.
Status makePreferencesFolder();

}  // namespace clientcomm
