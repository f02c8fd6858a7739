#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "tests/support/test_host.h"

/// The private folder of a test, with the bundle "TestHost.app" that it runs as, and home,
/// configuration and runtime folders. On the services of Linux they are real; a supervisor outside
/// removes the folder and ends every process that the test left, whatever became of the test
/// itself. On the services in memory (memory/) they are in the tree in memory.
namespace support {

/// The private folder of this test; removed after it.
const std::string& sandbox();

/// Writes `text` to the file at `path`, making the folders above it.
void writeFile(const std::string& path, std::string_view text);

/// The bytes of the file at `path`; empty when it cannot be read.
std::string readFile(const std::string& path);

/// Whether there is a folder at `path`.
bool isFolder(const std::string& path);

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
