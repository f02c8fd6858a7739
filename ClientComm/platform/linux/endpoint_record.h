#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/types.h"

/// Which bundle an endpoint belongs to. An application writes that down beside its socket, for
/// processes in another PID namespace, which cannot see its process.
namespace clientcomm {

struct EndpointRecord {
  std::string bundlePath;
  std::uint64_t device = 0;  ///< Of the socket file, and its inode.
  std::uint64_t inode = 0;
};

/// The record that a file of `bytes` holds; nothing when it holds none.
std::optional<EndpointRecord> endpointRecordFromBytes(std::string_view bytes);

/// Writes the record of the socket file `socketName`, which has this status, of the application
/// `identifier`. A program beside its bundle's executable writes none.
void writeEndpointRecord(int folder, const std::string& socketName, const struct stat& socket);

/// Removes the record of the socket file `socketName`.
void removeEndpointRecord(int folder, const std::string& socketName) noexcept;

/// The bundle path, as it was launched by, of the application that takes events under `identifier`
/// and whose process cannot be seen from here; nil when there is none.
OptionalString bundleOfUnseenEndpoint(const std::string& identifier);

/// Whether the endpoint under `identifier`, in the runtime folder of this process, is the process
/// `pid`.
bool holdsEndpoint(pid_t pid, const std::string& identifier);

/// Where a process listens for events.
enum class Listening {
  kNowhere,
  kHere,       ///< In the runtime folder of this process.
  kElsewhere,  ///< In another one.
};

/// Where the process `pid` has opened an endpoint for `identifier`. A forked child that holds its
/// parent's socket has not.
Listening listeningOf(pid_t pid, const std::string& identifier);

}  // namespace clientcomm
