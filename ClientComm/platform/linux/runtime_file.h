#pragma once

#include <string>
#include <string_view>

#include "ClientComm/platform/status.h"

/// Small files that the processes of one user share in the runtime folder. A reader never sees one
/// half-written.
namespace clientcomm {

/// Reads the file `name`. Follows no link.
/// @return ENOENT when it is missing, EFBIG when it is too large, EPERM when it is another user's,
///         EINVAL when it is no plain file.
Status readRuntimeFile(int folder, const std::string& name, std::string& bytes);

/// Puts a file of `bytes` under `name`, in one step.
Status replaceRuntimeFile(int folder, const std::string& name, std::string_view bytes);

/// The same unless there is a file of that name, which is EEXIST.
Status createRuntimeFile(int folder, const std::string& name, std::string_view bytes);

}  // namespace clientcomm
