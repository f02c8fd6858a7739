#pragma once

#include <cstdint>
#include <string>

#include "ClientComm/platform/property_list.h"
#include "tests/support/helper_files.h"

/// Applications in memory.
namespace support {

/// A process in memory that ends with the test, at the latest.
class MemoryApplication {
 public:
  /// Starts the application at `path`.
  explicit MemoryApplication(const std::string& path);
  ~MemoryApplication();
  MemoryApplication(const MemoryApplication&) = delete;
  MemoryApplication& operator=(const MemoryApplication&) = delete;

  std::int32_t pid() const { return pid_; }

 private:
  std::int32_t pid_;
};

/// Makes the bundle <sandbox>/`folder`/`name`.app. `extra` adds to or replaces the Info keys
/// CFBundleIdentifier, CFBundleName, CFBundleExecutable and CFBundleVersion ("1.0").
/// @return its path.
std::string makeApplication(const std::string& name, const std::string& identifier,
                            const clientcomm::PropertyListDictionary& extra = {},
                            const std::string& folder = "apps");

/// Makes a helper of this version in `folder`. @return its path.
std::string makeHelper(const std::string& folder, const std::string& version = "1.0");

}  // namespace support
