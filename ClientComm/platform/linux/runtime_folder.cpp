#include "ClientComm/platform/linux/runtime_folder.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "ClientComm/platform/digest.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/user_folders.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

constexpr mode_t kPrivateMode = 0700;

// Makes the folder and, on a system without a session manager, the directories above it.
bool makeFolder(const std::string& path) noexcept {
  if (mkdir(path.c_str(), kPrivateMode) == 0 || errno == EEXIST) return true;
  return errno == ENOENT && g_mkdir_with_parents(path.c_str(), kPrivateMode) == 0;
}

// A descriptor opened with O_PATH takes no fchmod(); its entry under /proc does.
bool closeToOthers(int folder) noexcept {
  return chmod(ProcPath::ofDescriptor(folder).c_str(), kPrivateMode) == 0;
}

bool isPrivate(int folder) noexcept {
  struct stat status = {};
  if (fstat(folder, &status) != 0) return false;
  if (status.st_uid != geteuid()) {
    errno = EPERM;
    return false;
  }
  return (status.st_mode & 0777) == kPrivateMode || closeToOthers(folder);
}

// @return no folder, with `error` as errno.
ScopedFd unusable(const char* call, int error) noexcept {
  report(DiagnosticCause::kRuntimeFolderUnusable, runtimeFolderPath(), call, error);
  errno = error;
  return {};
}

}  // namespace

const std::string& runtimeFolderPath() {
  static const std::string* const path =
      new std::string(stringByAppendingPathComponent(runtimeDirectory(), kRuntimeFolderName));
  return *path;
}

ScopedFd openRuntimeFolder(IfMissing ifMissing) noexcept {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  const std::string& path = runtimeFolderPath();
  if (ifMissing == IfMissing::kCreate && !mayCreateAt(path)) return unusable("mayCreateAt", EPERM);
  ScopedFd folder(open(path.c_str(), kFlags));
  if (!folder.isValid() && errno == ENOENT) {
    if (ifMissing == IfMissing::kFail) return {};
    if (!makeFolder(path)) return unusable("mkdir", errno);
    folder.reset(open(path.c_str(), kFlags));
  }
  if (!folder.isValid()) return unusable("open", errno);
  return isPrivate(folder.get()) ? std::move(folder) : unusable("isPrivate", errno);
}

std::string fileNameForIdentifier(std::string_view identifier) {
  std::string name = digestOf(identifier);
  name.resize(kFileNameLength);
  return name;
}

}  // namespace clientcomm
