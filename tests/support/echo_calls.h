#pragma once

#include <string>
#include <vector>

#include "ClientComm/platform/types.h"

/// Calls of this process to an echo application (`kEchoRole` in test_application.h).
namespace support {

/// The bundle identifier that a test gives its echo application unless it has several.
inline constexpr char kTarget[] = "com.example.target";

/// Sends a call that wants no answer.
clientcomm::OSErr send(const std::string& selector, const std::vector<std::string>& arguments,
                       const std::string& target = kTarget);

/// Asks and waits. @return nil when there is no answer. @param status of the call, if not null.
clientcomm::OptionalString ask(const std::string& selector,
                               const std::vector<std::string>& arguments,
                               clientcomm::OSErr* status = nullptr,
                               const std::string& target = kTarget);

}  // namespace support
