#pragma once

#include <string>
#include <string_view>

namespace clientcomm {

/// The folder of the user's settings files, "Preferences" in the user's configuration folder. Only
/// this library writes there.
std::string preferencesFolder();

/// Makes the folder where it is missing, for the user alone.
/// @return false when it could not be made.
bool makePreferencesFolder();

/// The SHA-256 digest of `text` in hexadecimal digits, as part of a file name.
std::string digestOf(std::string_view text);

}  // namespace clientcomm
