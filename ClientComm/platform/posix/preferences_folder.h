#pragma once

#include <string>

namespace clientcomm {

/// The folder of the user's settings files, "Preferences" in the user's configuration folder. Only
/// this library writes there.
std::string preferencesFolder();

/// Makes the folder where it is missing, for the user alone.
/// @return false when it could not be made.
bool makePreferencesFolder();

}  // namespace clientcomm
