#pragma once

#include <cstdint>
#include <string>

#include "ClientComm/platform/status.h"

/// File operations beyond POSIX, which each system offers under a call of its own.
namespace clientcomm {

/// Renames `from` to `to`, both relative to the open directory `directory`, in one step.
/// @return EEXIST when there is an entry `to`.
Status renameWithoutReplacing(int directory, const char* from, const char* to);

/// Copies the next bytes of the file `source` to `target`, inside the kernel, at the present offset
/// of both; advances both offsets.
/// @param limit the most bytes to copy.
/// @param copied receives the number of bytes copied; 0 at the end of `source`, and where the
///        system or the file system cannot do it.
Status copyInsideKernel(int source, int target, std::int64_t limit, std::int64_t& copied);

/// Whether the file at `path` has extended attributes that a new file in its place would lack. The
/// labels of security modules do not count: the system gives them to a new file too. A link is not
/// followed.
bool hasExtendedAttributes(const std::string& path);

}  // namespace clientcomm
