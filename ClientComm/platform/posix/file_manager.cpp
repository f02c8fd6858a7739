#include "ClientComm/platform/file_manager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/directory_reader.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/make_directories.h"
#include "ClientComm/platform/posix/partial_name.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/posix/tree_copier.h"
#include "ClientComm/platform/posix/tree_remover.h"
#include "ClientComm/platform/posix/user_folders.h"

namespace clientcomm {
namespace {

std::optional<Error> errorFrom(int code, const std::string& path) {
  if (code == 0) return std::nullopt;
  return Error{kFileErrorDomain, code, {{"FilePath", path}}};
}

void removePartials(int parent, std::string_view name,
                    bool (*isToBeRemoved)(std::string_view entry, std::string_view prefix)) {
  DirectoryReader directory(ScopedFd(openat(parent, ".", kDirectoryFlags)));
  if (!directory.isOpen()) return;
  const std::string prefix = partialPrefix(name);
  while (const dirent* entry = directory.next()) {
    if (isToBeRemoved(entry->d_name, prefix)) removeTree(parent, entry->d_name);
  }
}

int copyBeside(const std::string& source, int parent, const std::string& name) {
  struct stat status;
  if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  int code = EEXIST;
  std::string partial;
  while (code == EEXIST) {  // left by an earlier process that had this one's ID
    partial = nextPartialName(name);
    code = copyTree(AT_FDCWD, source.c_str(), parent, partial.c_str());
  }
  if (code == 0) code = renameWithoutReplacing(parent, partial.c_str(), name.c_str());
  if (code != 0) removeTree(parent, partial.c_str());
  return code;
}

}  // namespace

bool fileExistsAtPath(const std::string& path) noexcept {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

bool mayCreateItemAtPath(const std::string& path) noexcept { return mayCreateAt(path); }

std::optional<Error> createDirectoryAtPath(const std::string& path) {
  const std::string wanted(withoutTrailingSlashes(path));
  if (!fileExistsAtPath(wanted) && !mayCreateAt(wanted)) return errorFrom(EPERM, path);
  return errorFrom(makeDirectories(wanted, 0777), path);
}

std::optional<Error> removeItemAtPath(const std::string& path) {
  return errorFrom(removeTree(AT_FDCWD, std::string(withoutTrailingSlashes(path)).c_str()), path);
}

std::optional<Error> copyPath(const std::string& source, const std::string& destination) {
  const SplitPath target = splitPath(destination);
  if (target.name.empty()) return errorFrom(EEXIST, destination);
  if (!mayCreateAt(target.directory)) return errorFrom(EPERM, destination);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return errorFrom(errno, destination);
  removePartials(parent.get(), target.name, &isAbandonedPartial);
  const std::string from(withoutTrailingSlashes(source));
  return errorFrom(copyBeside(from, parent.get(), target.name), destination);
}

void removeUnfinishedCopies(const std::string& destination) {
  const SplitPath target = splitPath(destination);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (parent.isValid()) removePartials(parent.get(), target.name, &isPartial);
}

std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path) {
  std::vector<std::string> names;
  DirectoryReader directory(ScopedFd(open(path.c_str(), kDirectoryFlags)));
  if (!directory.isOpen()) return names;
  while (const dirent* entry = directory.next()) names.emplace_back(entry->d_name);
  return names;
}

std::string stringByExpandingTildeInPath(const std::string& path) {
  if (path != "~" && !path.starts_with("~/")) return path;
  std::string home(withoutTrailingSlashes(homeDirectory()));
  if (path == "~") return home;
  return home == "/" ? path.substr(1) : home + path.substr(1);
}

}  // namespace clientcomm
