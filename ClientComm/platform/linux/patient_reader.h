#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "ClientComm/platform/status.h"

namespace clientcomm {

/// How long a file system that may not answer is waited for.
inline constexpr std::chrono::milliseconds kReadLimit{500};

/// After a file system that did not answer in time, none is asked for so long.
inline constexpr std::chrono::seconds kReadPause{10};

/// All bytes of the regular file at `path`, read by a short-lived child process, so that this
/// process waits for at most `kReadLimit`, and in all at most that long in `kReadPause`. A link in
/// the file's place is not followed. For one thread at a time.
/// @return ETIMEDOUT when the file cannot be read in time, EBUSY when no child is started now, EIO
///         when the file cannot be read or is larger than `limit`, or why there is no child
///         process.
Status readByChildProcess(const std::string& path, std::size_t limit, std::string& bytes);

}  // namespace clientcomm
