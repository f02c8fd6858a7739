#include "ClientComm/platform/posix/user_folders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

constexpr char kSessionDirectories[] = "/run/user/";

// The path of a missing directory: nothing exists below it, and nothing can be made.
constexpr const char kNoDirectory[] = "/dev/null";

// The value of an environment variable that names a directory. A relative path is ignored, as the
// XDG base directory rules ask.
std::string directoryInEnvironment(const char* name) {
  const char* const value = isSetuidProcess() ? nullptr : std::getenv(name);
  if (value == nullptr || value[0] == '/') return value != nullptr ? value : "";
  if (value[0] != '\0') report(DiagnosticCause::kEnvironmentIgnored, name);
  return "";
}

std::string homeInPasswordDatabase() {
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  while (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  return found != nullptr && entry.pw_dir != nullptr && entry.pw_dir[0] == '/' ? entry.pw_dir : "";
}

constexpr bool isOfMissing(int error) { return error == ENOENT || error == ENOTDIR; }

// The owner of `path`, or where it is missing of the nearest directory above it.
// @return 0 or an errno value.
int readOwner(std::string path, uid_t& owner) {
  struct stat status {};
  while (stat(path.c_str(), &status) != 0) {
    const int error = errno;
    std::string parent = splitPath(path).directory;
    if (!isOfMissing(error) || parent == path) return error;
    path = std::move(parent);
  }
  owner = status.st_uid;
  return 0;
}

// Where a failure that may pass hides the owner, the directory is taken for the user's own: a
// process that turned to another one for its life would be out of reach of all others.
bool mayBelongToEffectiveUser(const std::string& path) {
  uid_t owner = 0;
  const int error = readOwner(path, owner);
  return error == 0 ? owner == geteuid() : mayPass(error);
}

bool isMissingSessionDirectory(const std::string& path) noexcept {
  struct stat status {};
  return path.starts_with(kSessionDirectories) && stat(path.c_str(), &status) != 0 &&
         isOfMissing(errno);
}

// `name` in the directory `home`; empty where there is no such directory.
std::string below(const std::string& home, const char* name) {
  return home.empty() ? home : stringByAppendingPathComponent(home, name);
}

using Directory = std::string (*)();

// Without a directory that belongs to the effective user, the first is used where it exists, and
// `mayCreateAt` says whether it may be made. The password database, which is slow, comes last.
std::string firstOwn(std::initializer_list<Directory> directories) {
  std::string first;
  for (const Directory directory : directories) {
    std::string candidate = directory();
    if (candidate.empty() || isMissingSessionDirectory(candidate)) continue;
    if (mayBelongToEffectiveUser(candidate)) return candidate;
    if (first.empty()) first = candidate;
  }
  return first.empty() ? kNoDirectory : first;
}

bool leadsThroughLink(const std::string& path) {
  struct stat status {};
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    if (lstat(path.substr(0, end).c_str(), &status) == 0 && S_ISLNK(status.st_mode)) return true;
    if (end == std::string::npos) return false;
  }
}

}  // namespace

std::string homeDirectory() {
  std::string home = directoryInEnvironment("HOME");
  return home.empty() ? homeInPasswordDatabase() : home;
}

std::string configDirectory() {
  return firstOwn({[] { return directoryInEnvironment("XDG_CONFIG_HOME"); },
                   [] { return below(directoryInEnvironment("HOME"), ".config"); },
                   [] { return below(homeInPasswordDatabase(), ".config"); }});
}

std::string runtimeDirectory() {
  return firstOwn({[] { return directoryInEnvironment("XDG_RUNTIME_DIR"); },
                   [] { return std::string(kSessionDirectories) + std::to_string(geteuid()); },
                   [] { return directoryInEnvironment("XDG_CACHE_HOME"); },
                   [] { return below(directoryInEnvironment("HOME"), ".cache"); },
                   [] { return below(homeInPasswordDatabase(), ".cache"); }});
}

bool mayCreateAt(const std::string& path) noexcept {
  try {
    if (!mayReplaceAt(path)) return false;
    uid_t owner = 0;
    return geteuid() != 0 || readOwner(path, owner) != 0 || owner == 0;
  } catch (...) {
    return false;  // out of memory
  }
}

bool mayReplaceAt(const std::string& path) noexcept {
  try {
    return !isSetuidProcess() || !leadsThroughLink(path);
  } catch (...) {
    return false;  // out of memory
  }
}

}  // namespace clientcomm
