#include "ClientComm/platform/linux/bound_name.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstddef>

#include "ClientComm/platform/linux/decimal_number.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"

namespace clientcomm {

std::string boundName(const BoundName& parts) {
  return std::string(parts.fileName) + "." + std::to_string(parts.pid) + "." +
         std::to_string(parts.version);
}

std::optional<BoundName> partsOfBoundName(std::string_view name) noexcept {
  if (name.size() <= kFileNameLength || name[kFileNameLength] != '.' ||
      name.find_first_not_of(kFileNameDigits) != kFileNameLength) {
    return std::nullopt;
  }
  const std::string_view numbers = name.substr(kFileNameLength + 1);
  const auto dot = std::min(numbers.find('.'), numbers.size());
  BoundName parts;
  parts.fileName = name.substr(0, kFileNameLength);
  parts.pid = decimalNumber<pid_t>(numbers.substr(0, dot));
  parts.version = decimalNumber<WireVersion>(numbers.substr(std::min(dot + 1, numbers.size())));
  return parts.pid != 0 && parts.version != 0 ? std::optional(parts) : std::nullopt;
}

std::optional<WireVersion> versionOfEndpoint(int socket) noexcept {
  sockaddr_un address{};
  socklen_t size = sizeof address;
  if (getpeername(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return std::nullopt;
  const char* const end = std::find(std::begin(address.sun_path), std::end(address.sun_path), '\0');
  std::string_view name(address.sun_path, static_cast<std::size_t>(end - address.sun_path));
  name.remove_prefix(name.rfind('/') + 1);
  const auto parts = partsOfBoundName(name);
  return parts ? std::optional(parts->version) : std::nullopt;
}

}  // namespace clientcomm
