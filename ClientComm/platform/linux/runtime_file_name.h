#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

/// The names of the files in the runtime folder; see docs/files.md.
namespace clientcomm {

std::string processRecordName(pid_t pid);

/// The name where a process of another PID namespace has the one above.
std::string processRecordName(pid_t pid, std::uint64_t pidNamespace);

std::string launchRecordName(const std::string& bundlePath);

/// @param socketName the name of the endpoint's socket.
std::string endpointRecordName(std::string_view socketName);

/// The name under which this process writes the record `name` before it puts it in place.
std::string draftName(const std::string& name);

enum class RuntimeFileKind {
  kOther,
  kProcessRecord,
  kDraft,   ///< A record that is not renamed into place yet.
  kSocket,  ///< A socket that is not renamed into place yet.
};

/// What the name of a file says.
struct RuntimeFileName {
  RuntimeFileKind kind = RuntimeFileKind::kOther;
  /// The process of the record, or the maker of the temporary file; 0 where earlier versions leave
  /// it out.
  pid_t pid = 0;
  /// Of a process record; 0 where the name has none.
  std::uint64_t pidNamespace = 0;

  bool operator==(const RuntimeFileName&) const = default;
};

RuntimeFileName parseRuntimeFileName(std::string_view name) noexcept;

}  // namespace clientcomm
