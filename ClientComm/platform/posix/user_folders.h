#pragma once

#include <string>

/// The folders of the effective user, and the rules for writing below them.
///
/// Two kinds of process run in an environment that belongs to somebody else. A host that root runs
/// in a user's environment (su, sudo -E) would leave folders that lock that user out. A setuid or
/// setgid program (AT_SECURE) would write where its caller wants. The environment therefore counts
/// only where it names a directory of the effective user, and not at all in a setuid program.
namespace clientcomm {

/// The effective user's home directory: $HOME, where it is absolute; in a setuid process, or
/// without it, the one in the password database. Empty when there is none.
std::string homeDirectory();

/// The directory for settings: the first of $XDG_CONFIG_HOME, ~/.config, and .config in the home
/// directory of the password database that belongs to the effective user.
std::string configDirectory();

/// The directory for sockets: the first of $XDG_RUNTIME_DIR, /run/user/<uid>, $XDG_CACHE_HOME,
/// ~/.cache, and .cache in the home directory of the password database that belongs to the
/// effective user. A missing directory belongs to the owner of the nearest one above it, except
/// below /run/user, where only the session manager makes directories.
std::string runtimeDirectory();

/// Whether this process may create `path`. No for root where the nearest existing directory belongs
/// to another user; no where `mayReplaceAt` says no.
bool mayCreateAt(const std::string& path) noexcept;

/// Whether this process may replace the content of `path`. No for a setuid process where a part of
/// the path is a symbolic link.
bool mayReplaceAt(const std::string& path) noexcept;

}  // namespace clientcomm
