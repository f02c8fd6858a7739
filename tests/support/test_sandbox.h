#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "ClientComm/platform/property_list.h"

/// Every test program runs as the executable of a real bundle, "TestHost.app", in a private folder
/// with its own home, configuration and runtime folders. A supervisor outside removes the folder
/// and ends every process that the test left, whatever became of the test itself.
namespace support {

/// The private folder of this test; removed after it.
const std::string& sandbox();

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

/// Writes `text` to the file at `path`, making the folders above it.
void writeFile(const std::string& path, std::string_view text);

/// The bytes of the file at `path`; empty when it cannot be read.
std::string readFile(const std::string& path);

/// Runs the main loop until `condition` holds.
/// @return false when it did not hold within `limit`.
bool runLoopUntil(const std::function<bool()>& condition,
                  std::chrono::milliseconds limit = std::chrono::seconds(20));

/// Waits, without running the main loop, until `condition` holds.
/// @return false when it did not hold within `limit`.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(20));

/// Number of open descriptors, and of threads, of this process.
int openDescriptorCount();
int threadCount();

}  // namespace support
