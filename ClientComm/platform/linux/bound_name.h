#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/wire_format.h"

/// The name that an endpoint's socket is bound to before it is renamed. The kernel keeps it, and so
/// it tells other processes about the very socket that they look at.
namespace clientcomm {

struct BoundName {
  std::string_view fileName;  ///< The endpoint's `fileNameForIdentifier`.
  pid_t pid = 0;              ///< The process that bound it.
  WireVersion version = 0;    ///< The highest that it serves.
};

std::string boundName(const BoundName& parts);

/// The parts of `name`, without a folder; nothing when it is no bound name.
std::optional<BoundName> partsOfBoundName(std::string_view name) noexcept;

/// The highest version that the endpoint at the other end of `socket` serves; nothing when it does
/// not tell.
std::optional<WireVersion> versionOfEndpoint(int socket) noexcept;

}  // namespace clientcomm
