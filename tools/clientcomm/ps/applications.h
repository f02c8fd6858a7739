#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/platform/types.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm::tool {

/// An application of this user that takes calls. What cannot be told is nil.
struct Application {
  std::string endpoint;  ///< The name of its socket.
  OptionalString identifier;
  pid_t process = 0;  ///< 0 where it is not seen from here, as in a sandbox.
  OptionalString bundlePath;
  OptionalString bundleVersion;  ///< Of the bundle at that path now.
  std::optional<WireVersion> wireVersion;
  OptionalString libraryVersion;
  std::optional<std::chrono::seconds> age;
  /// Calls in the kernel's queue, which the application has not begun to look at.
  std::optional<std::uint32_t> waitingCalls;
};

/// Looks at each endpoint of the runtime folder, by identifier.
std::vector<Application> applications();

}  // namespace clientcomm::tool
