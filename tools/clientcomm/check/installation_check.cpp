#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "ClientComm/internal/version_order.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/file_lock.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/partial_name.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "ClientComm/platform/removal_format.h"
#include "tools/clientcomm/check/examination.h"
#include "tools/clientcomm/check/helper_bundle.h"
#include "tools/clientcomm/check/program.h"

// The install folder and the installed helper.

namespace clientcomm::tool {
namespace {

bool needsWriting(const Examination& examination) {
  return examination.plan == Plan::kInstall || examination.plan == Plan::kReplace;
}

// The folder itself, or the nearest one above it that exists.
std::string existingFolder(std::string path) {
  while (!fileExistsAtPath(path) && path != "/" && !path.empty()) path = splitPath(path).directory;
  return path;
}

void choosePlan(Examination& examination) {
  if (!examination.embedded) return;
  if (!examination.isInstalled) {
    examination.plan = Plan::kInstall;
    return;
  }
  const std::string embedded = examination.embeddedVersion.value_or("");
  const std::string installed = examination.installedVersion.value_or("");
  const int order = compareVersionStrings(embedded, installed);
  examination.plan = order == 1 ? Plan::kReplace : Plan::kKeep;
  if (order != -1) return;
  examination.findings.add(Cause::kInstalledHelperNewer, *examination.installed,
                           "The installed helper, version " + installed +
                               ", is newer than the host's, version " + embedded + ", and stays.",
                           "Nothing; to go back, remove the installed helper.");
}

// Where nothing has to be written it is a note.
Severity severityOfWriting(const Examination& examination) {
  return needsWriting(examination) ? Severity::kError : Severity::kNote;
}

void checkWritable(const std::string& folder, Examination& examination) {
  Findings& findings = examination.findings;
  const bool exists = folder == *examination.installFolder;
  if (access(folder.c_str(), W_OK | X_OK) == 0) return;
  const Severity severity = severityOfWriting(examination);
  if (errno == EROFS) {
    findings.add(
        Cause::kMountedReadOnly, severity, folder,
        "The file system is mounted read-only: the helper cannot be installed or replaced.",
        "Choose another folder under \"Helper loaction path\".");
  } else if (exists) {
    findings.add(Cause::kInstallFolderNotWritable, severity, folder,
                 std::string("The install folder cannot be written (") + std::strerror(errno) +
                     "): the helper cannot be installed or replaced.",
                 "Make it the user's own, or choose another under \"Helper loaction path\".");
  } else {
    findings.add(
        Cause::kInstallFolderNotMade, severity, *examination.installFolder,
        "The install folder cannot be made in " + folder + ": " + std::strerror(errno) + ".",
        "Make it, or choose another under \"Helper loaction path\".");
  }
}

std::uintmax_t sizeOfTree(const std::string& path) {
  namespace fs = std::filesystem;
  std::uintmax_t size = 0;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(path, error), end; entry != end && !error;
       entry.increment(error)) {
    std::error_code ignored;
    if (entry->is_regular_file(ignored) && !entry->is_symlink(ignored)) {
      size += entry->file_size(ignored);
    }
  }
  return size;
}

void checkSpace(const std::string& folder, Examination& examination) {
  struct statvfs system = {};
  if (!needsWriting(examination) || statvfs(folder.c_str(), &system) != 0) return;
  const std::uintmax_t available = std::uintmax_t{system.f_bavail} * system.f_frsize;
  const std::uintmax_t needed = sizeOfTree(*examination.embedded);
  if (needed <= available) return;
  examination.findings.add(Cause::kInstallFolderFull, folder,
                           "The helper has " + std::to_string(needed) + " bytes, and only " +
                               std::to_string(available) + " are free.",
                           "Free some space.");
}

// @return whether the folder, or one above it, can be looked at further.
bool checkFolder(Examination& examination) {
  const std::string& folder = *examination.installFolder;
  Findings& findings = examination.findings;
  if (!folder.starts_with('/')) {
    findings.add(Cause::kInstallFolderRelative, folder,
                 "The install folder is no absolute path: it depends on where the host is started.",
                 "Write an absolute path, or one that begins with \"~/\".");
    return false;
  }
  if (!mayCreateItemAtPath(folder)) {
    findings.add(Cause::kInstallFolderNotOwned, folder,
                 "The install folder belongs to another user, for whom root installs nothing.",
                 "Run the host as the user that the folder belongs to.");
    return false;
  }
  struct stat status = {};
  const std::string existing = existingFolder(folder);
  if (stat(existing.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    findings.add(Cause::kInstallFolderNotMade, folder,
                 existing + " is no folder, so the install folder cannot be used.",
                 "Remove that file, or choose another folder under \"Helper loaction path\".");
    return false;
  }
  return true;
}

void checkLock(Examination& examination) {
  const std::string& folder = *examination.installFolder;
  const DirectoryLock lock(folder, std::chrono::milliseconds(0));
  if (lock.isHeld() || lock.status().code() != ETIMEDOUT) return;
  examination.findings.add(
      Cause::kInstallFolderLocked, folder,
      "Another process holds the install folder: it installs, replaces or launches the helper.",
      "If that lasts, \"lslocks\" shows the process.");
}

void checkLeftovers(Examination& examination) {
  const std::string& folder = *examination.installFolder;
  const std::string name = lastPathComponent(*examination.installed);
  const std::string partial = partialPrefix(name);
  const std::string mark = "." + name + kRemovalMarkSuffix;
  for (const std::string& entry : contentsOfDirectoryAtPath(folder)) {
    if (isRemovedName(entry, name) || entry == mark) {
      examination.findings.add(
          Cause::kRemovalUnfinished, stringByAppendingPathComponent(folder, entry),
          "It is what is left of a replaced helper that has not taken the exit command yet.",
          "Start the host: it repeats the command and removes this.");
    } else if (isPartial(entry, partial)) {
      examination.findings.add(Cause::kCopyUnfinished,
                               stringByAppendingPathComponent(folder, entry),
                               "It is a copy of the helper that is not finished.",
                               "Start the host: it removes what an earlier process left.");
    }
  }
}

}  // namespace

void checkInstallation(Examination& examination) {
  if (!examination.helperName || !examination.installFolder) return;
  if (!checkFolder(examination)) return;
  const std::string& folder = *examination.installFolder;
  examination.installed = stringByAppendingPathComponent(folder, *examination.helperName) +
                          std::string(kApplicationSuffix);
  examination.isInstalled = fileExistsAtPath(*examination.installed);
  if (examination.isInstalled) {
    examination.installedVersion = Bundle(*examination.installed).infoString(kCFBundleVersionKey);
  }
  choosePlan(examination);
  if (examination.isInstalled && !needsWriting(examination)) {
    checkHelperBundle(*examination.installed, examination);
  }
  const std::string existing = existingFolder(folder);
  checkWritable(existing, examination);
  checkSpace(existing, examination);
  checkMountOfPrograms(existing, examination.findings);
  if (existing != folder) return;
  checkLock(examination);
  checkLeftovers(examination);
}

}  // namespace clientcomm::tool
