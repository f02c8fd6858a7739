#pragma once

#include <string>
#include <string_view>
#include <vector>

/// An endpoint that takes and sends packets byte by byte, as another version of the library may.
namespace compatibility {

/// Opens the endpoint of `identifier` with a socket bound to `boundName`, and serves one connection
/// for each of `answers`: keeps the packet that comes, and sends the answer, unless it is empty.
/// Run it in a child process. @return 0, or which step failed.
int serveRaw(const std::string& identifier, const std::string& boundName,
             const std::vector<std::string>& answers);

/// Waits until the endpoint is open. @return whether it is.
bool waitForEndpoint(const std::string& identifier);

/// The packet that came with connection `index`, without descriptors; empty when the connection
/// ended without one. Valid once the endpoint has ended.
std::string receivedPacket(std::size_t index);

/// The bound name of a socket of this process that serves `version`, whatever that says.
std::string boundNameOf(const std::string& identifier, std::string_view version);

}  // namespace compatibility
