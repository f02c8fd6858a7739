#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Small files that the processes of one user leave for each other in the runtime folder. A reader
/// never sees one half-written.
namespace clientcomm {

/// The bytes of the file `name`; nothing when it is missing, too large, another user's, or no plain
/// file. Follows no link.
std::optional<std::string> readRuntimeFile(int folder, const std::string& name);

/// Puts a file of `bytes` under `name`, in one step. @return whether it is in place.
bool replaceRuntimeFile(int folder, const std::string& name, std::string_view bytes);

/// The same unless there is a file of that name. @return whether it is in place.
bool createRuntimeFile(int folder, const std::string& name, std::string_view bytes);

}  // namespace clientcomm
