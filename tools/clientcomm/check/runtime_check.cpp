#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/user_folders.h"
#include "tools/clientcomm/check/examination.h"

// The environment and the runtime folder, as a host that is started here has them.

namespace clientcomm::tool {
namespace {

constexpr char kRuntimeVariable[] = "XDG_RUNTIME_DIR";

void checkVariables(Findings& findings) {
  for (const char* const name : {kRuntimeVariable, "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "HOME"}) {
    const char* const value = std::getenv(name);
    if (value == nullptr || *value == '\0' || *value == '/') continue;
    findings.add(Cause::kEnvironmentIgnored, value,
                 std::string("$") + name + " names no absolute path and is ignored.",
                 "Set it to an absolute path, or unset it.");
  }
}

// Where a process with the usual environment has its folder.
void checkDirectory(Findings& findings) {
  const std::string used = runtimeDirectory();
  const char* const wanted = std::getenv(kRuntimeVariable);
  if (wanted == nullptr || *wanted == '\0') {
    if (used == "/run/user/" + std::to_string(geteuid())) return;
    findings.add(
        Cause::kRuntimeDirectoryUnset, used,
        "$XDG_RUNTIME_DIR is not set, and this folder is used. Processes in a session that "
        "sets it do not find those that are started here.",
        "Run the host within the session.");
  } else if (*wanted == '/' && used != wanted) {
    findings.add(
        Cause::kRuntimeDirectoryRefused, wanted,
        "$XDG_RUNTIME_DIR names a folder that does not exist or belongs to another user; " + used +
            " is used.",
        "Set it to the runtime directory of this user.");
  }
}

void addUnusable(const std::string& path, const std::string& why, Findings& findings) {
  findings.add(Cause::kRuntimeFolderUnusable, path,
               why +
                   ", so the runtime folder cannot be used: nothing is launched, and no call goes "
                   "out or comes in.",
               "Correct the folder, or $XDG_RUNTIME_DIR.");
}

std::string nearestFolder(std::string path, struct stat& status) {
  while (stat(path.c_str(), &status) != 0 && path != "/") path = splitPath(path).directory;
  return path;
}

void checkMissingFolder(const std::string& path, Findings& findings) {
  struct stat status = {};
  const std::string above = nearestFolder(splitPath(path).directory, status);
  if (!S_ISDIR(status.st_mode)) {
    addUnusable(path, above + " is no folder", findings);
  } else if (!mayCreateAt(path)) {
    addUnusable(path, above + " belongs to another user", findings);
  } else if (access(above.c_str(), W_OK | X_OK) != 0) {
    addUnusable(path, "It cannot be made in " + above + " (" + std::strerror(errno) + ")",
                findings);
  }
}

void checkFolder(const std::string& path, Findings& findings) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) return checkMissingFolder(path, findings);
  if (!S_ISDIR(status.st_mode)) return addUnusable(path, "It is no folder", findings);
  if (status.st_uid != geteuid()) {
    return addUnusable(path, "It belongs to another user", findings);
  }
  if ((status.st_mode & 0777) != 0700) {
    findings.add(Cause::kRuntimeFolderOpen, path, "The runtime folder has another mode than 0700.",
                 "Nothing: the next application closes it to others.");
  } else if (access(path.c_str(), W_OK | X_OK) != 0) {
    addUnusable(path, std::string("It cannot be written (") + std::strerror(errno) + ")", findings);
  }
  const DirectoryLock lock(path, std::chrono::milliseconds(0));
  if (lock.isHeld() || lock.status().code() != ETIMEDOUT) return;
  findings.add(Cause::kLaunchLocked, path,
               "Another process holds the runtime folder: it launches an application.",
               "If that lasts, \"lslocks\" shows the process.");
}

}  // namespace

void checkRuntime(Examination& examination) {
  checkVariables(examination.findings);
  checkDirectory(examination.findings);
  checkFolder(runtimeFolderPath(), examination.findings);
}

}  // namespace clientcomm::tool
