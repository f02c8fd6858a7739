#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Small files that the processes of one user leave for each other in the runtime folder.
namespace clientcomm {

/// Suffix of a file that is being written and not yet in place.
inline constexpr std::string_view kDraftSuffix = ".new";

/// The bytes of the file `name`; nothing when it is missing, too large, another user's, or no plain
/// file. Follows no link.
std::optional<std::string> readRuntimeFile(int folder, const std::string& name);

/// Puts a file of `bytes` under `name`, in one step. @return whether it is in place.
bool replaceRuntimeFile(int folder, const std::string& name, std::string_view bytes);

/// Writes the file `name` unless there is one. @return whether it was written.
bool createRuntimeFile(int folder, const std::string& name, std::string_view bytes);

}  // namespace clientcomm
