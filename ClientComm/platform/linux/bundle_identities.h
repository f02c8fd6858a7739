#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/linux/executable_link.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// The largest Info.plist of another application that is read, in bytes.
inline constexpr std::size_t kLargestInfo = std::size_t{64} << 10;

/// The longest identifier and name, in bytes; a longer one counts as none.
inline constexpr std::size_t kMaximumIdentifierLength = 1024;

/// What is known of the bundle that a process runs from.
struct BundleIdentity {
  std::string path;
  OptionalString identifier;
  OptionalString name;
};

/// The identity that the process `pid` (0 for one that is gone or not seen) was started with, as
/// far as that is known: by the bundle while it exists, else by the process itself. Where the
/// bundle is on a file system that may not answer, the process itself is asked first.
std::optional<BundleIdentity> ownIdentity(pid_t pid, const ExecutableLink& link,
                                          std::string_view bundlePath);

/// Fallback: the identity of the bundle now at that path.
BundleIdentity successorIdentity(std::string_view bundlePath);

PropertyListDictionary dictionaryOf(const BundleIdentity& identity);

}  // namespace clientcomm
