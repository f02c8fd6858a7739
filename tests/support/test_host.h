#pragma once

#include <string>

#include "ClientComm/platform/property_list.h"

/// The bundle that a test runs as.
namespace support {

/// Path of the test's own bundle, the main bundle of the process.
std::string hostBundlePath();

/// The bundle identifier of the helper; another in each private folder, since tests run side by
/// side and an application runs only once for a user.
std::string helperIdentifier();

/// The Info dictionary that the test's own bundle has unless a test changes it: identifier
/// com.example.testhost, PID "P100", version "1.2.3", and the helper "Test Helper"
/// (`helperIdentifier`), to be installed in <sandbox>/install.
clientcomm::PropertyListDictionary defaultHostInfo();

/// Writes the Info.plist of the test's own bundle; only before the main bundle is first used.
void writeHostInfo(const clientcomm::PropertyListDictionary& info);

}  // namespace support
