#pragma once

#include <string>

#include "ClientComm/platform/property_list.h"

/// The helper that the test's own bundle names, and the files of both.
namespace support {

inline constexpr char kHelperName[] = "Test Helper";

/// Folders, relative to the private one, in which the helper lies.
inline constexpr char kResourceFolder[] = "TestHost.app/Contents/Resources";
inline constexpr char kInstallFolder[] = "install";

/// Where the installed helper lies.
std::string installedHelperPath();

/// The file of the user's settings for this bundle identifier.
std::string preferencesPath(const std::string& identifier);

/// The host's user defaults as their file stands now; empty when there is none.
clientcomm::PropertyListDictionary hostDefaults();

/// Writes the helper's own preferences, as the helper does.
void writeHelperPreferences(const clientcomm::PropertyListDictionary& values);

}  // namespace support
