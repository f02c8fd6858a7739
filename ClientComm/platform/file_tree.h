#pragma once

#include <string>
#include <vector>

#include "ClientComm/platform/status.h"

/// Operations on whole trees, and what decides whether and where they act. Paths are bytes and are
/// passed on as they stand.
namespace clientcomm {

/// Whether this process creates anything at `path`. A process of the superuser creates nothing
/// under a directory of another user, whom it would lock out; a setuid process, nothing behind a
/// link.
bool mayCreateItemAtPath(const std::string& path) noexcept;

/// Removes the file or the whole tree at `path`; a link is removed, not followed. The tree is
/// removed in place, entry by entry; see `moveAside` for a removal in one step.
/// @return the first failure; what could be removed is gone then. None where nothing is at `path`.
Status removeItemAtPath(const std::string& path);

/// Copies the file or the whole tree at `source` to `destination`, keeping modes, times and
/// symbolic links. Fails with EEXIST when anything exists at `destination`. The copy is built
/// beside the destination and renamed into place, so that it is never seen half-done; what an
/// interrupted copy left beside it is cleared away by the next.
/// @return the failure, with the path in the source or in the destination; nothing is left at the
///         destination then.
Status copyPath(const std::string& source, const std::string& destination);

/// Removes the copies beside `destination` that are not finished, whichever process made them. The
/// caller makes sure that no process is copying to `destination`.
/// @return the first failure; what could be removed is gone then.
Status removeUnfinishedCopies(const std::string& destination);

/// Makes the directory at `path` and, where missing, those above it; see `createDirectoryAtPath`.
Status makeDirectoryAtPath(const std::string& path);

/// Names of the entries of the directory at `path`, without "." and "..", in the order that the
/// file system gives; those before the failure when it cannot be read to its end.
Status listDirectoryAtPath(const std::string& path, std::vector<std::string>& names);

/// The same for a caller to whom a directory that cannot be read is an empty one.
std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path);

/// `path` with a leading "~" or "~/" replaced by the user's home folder; otherwise unchanged.
std::string stringByExpandingTildeInPath(const std::string& path);

}  // namespace clientcomm
