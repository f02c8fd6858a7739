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
#include "ClientComm/platform/status.h"

namespace clientcomm {
namespace {

using Condition = bool (*)(std::string_view entry, std::string_view prefix);

// @return the first failure; the others are removed all the same.
Status removePartials(int parent, std::string_view name, Condition isToBeRemoved) {
  DirectoryReader directory(ScopedFd(openat(parent, ".", kDirectoryFlags)));
  if (!directory.isOpen()) return Status::ofFile(errno, "openat");
  const std::string prefix = partialPrefix(name);
  Status first;
  while (const dirent* entry = directory.next()) {
    if (!isToBeRemoved(entry->d_name, prefix)) continue;
    Status removed = removeTree(parent, entry->d_name);
    if (first.isOk()) first = std::move(removed);
  }
  return first.isOk() ? Status::ofFile(errno, "readdir") : std::move(first);
}

// A failure at the partial copy is told with the name that the copy gets.
Status withFinalPath(Status status, const std::string& partial, const SplitPath& target) {
  if (!status.path().starts_with(partial)) return status;
  const std::string path = stringByAppendingPathComponent(target.directory, target.name);
  return {status.domain(), status.code(), status.call(),
          path + status.path().substr(partial.size())};
}

Status copyBeside(const std::string& source, int parent, const SplitPath& target) {
  const std::string& name = target.name;
  struct stat status;
  if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return Status::ofFile(EEXIST, "fstatat", name).below(target.directory);
  }
  Status copied;
  std::string partial;
  do {  // EEXIST: left by an earlier process that had this one's ID
    partial = nextPartialName(name);
    copied =
        withFinalPath(copyTree(AT_FDCWD, source.c_str(), parent, partial.c_str()), partial, target);
  } while (copied.code() == EEXIST);
  if (copied.isOk()) {
    copied = renameWithoutReplacing(parent, partial.c_str(), name.c_str()).below(target.directory);
  }
  // The next copy removes what is left now.
  if (!copied.isOk()) {
    removeTree(parent, partial.c_str()).report(DiagnosticCause::kLeftoverNotRemoved);
  }
  return copied;
}

}  // namespace

bool fileExistsAtPath(const std::string& path) noexcept {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

bool mayCreateItemAtPath(const std::string& path) noexcept { return mayCreateAt(path); }

Status makeDirectoryAtPath(const std::string& path) {
  const std::string wanted(withoutTrailingSlashes(path));
  if (!fileExistsAtPath(wanted) && !mayCreateAt(wanted)) {
    return Status::ofFile(EPERM, "mayCreateAt", wanted);
  }
  return makeDirectories(wanted, 0777);
}

std::optional<Error> createDirectoryAtPath(const std::string& path) {
  return makeDirectoryAtPath(path).error();
}

Status removeItemAtPath(const std::string& path) {
  return removeTree(AT_FDCWD, std::string(withoutTrailingSlashes(path)).c_str());
}

Status copyPath(const std::string& source, const std::string& destination) {
  const SplitPath target = splitPath(destination);
  if (target.name.empty()) return Status::ofFile(EEXIST, "splitPath", destination);
  if (!mayCreateAt(target.directory)) {
    return Status::ofFile(EPERM, "mayCreateAt", target.directory);
  }
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return Status::ofFile(errno, "open", target.directory);
  // They take up space and hinder nothing.
  removePartials(parent.get(), target.name, &isAbandonedPartial)
      .report(DiagnosticCause::kLeftoverNotRemoved);
  return copyBeside(std::string(withoutTrailingSlashes(source)), parent.get(), target);
}

Status removeUnfinishedCopies(const std::string& destination) {
  const SplitPath target = splitPath(destination);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return Status::ofFile(errno, "open", target.directory);
  return removePartials(parent.get(), target.name, &isPartial).below(target.directory);
}

Status listDirectoryAtPath(const std::string& path, std::vector<std::string>& names) {
  names.clear();
  DirectoryReader directory(ScopedFd(open(path.c_str(), kDirectoryFlags)));
  if (!directory.isOpen()) return Status::ofFile(errno, "open", path);
  while (const dirent* entry = directory.next()) names.emplace_back(entry->d_name);
  return Status::ofFile(errno, "readdir", path);
}

std::vector<std::string> contentsOfDirectoryAtPath(const std::string& path) {
  std::vector<std::string> names;
  listDirectoryAtPath(path, names).ignore();  // as the caller asks
  return names;
}

std::string stringByExpandingTildeInPath(const std::string& path) {
  if (path != "~" && !path.starts_with("~/")) return path;
  std::string home(withoutTrailingSlashes(homeDirectory()));
  if (path == "~") return home;
  return home == "/" ? path.substr(1) : home + path.substr(1);
}

}  // namespace clientcomm
