#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <utility>

#include "platform/file_manager.h"
#include "platform/linux/directory_reader.h"
#include "platform/linux/io.h"
#include "platform/linux/partial_name.h"
#include "platform/linux/scoped_fd.h"

namespace platform {
namespace {

std::optional<Error> errorFrom(int code, const std::string& path) {
  if (code == 0) return std::nullopt;
  return Error{kFileErrorDomain, code, {{"FilePath", path}}};
}

bool isDirectory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// --- Removal. Nobody's tree but ours is touched: every step goes by a directory's descriptor and
// follows no link. That an entry is gone already is no error; another may be removing it too. ---

class TreeRemover {
 public:
  // @return 0, or the first error; the rest is removed all the same.
  int remove(int parent, const char* name) {
    outside_ = parent;
    if (!unlink(parent, name, 0)) removeDirectory(parent, name, true);
    return firstError_;
  }

 private:
  // @return false when the entry is still there because it is a directory, or one with entries.
  bool unlink(int parent, const char* name, int flags) {
    int status = statusOf(unlinkat(parent, name, flags));
    if (status == EACCES && makeWritable(parent)) status = statusOf(unlinkat(parent, name, flags));
    if (status == EISDIR || status == ENOTEMPTY || status == EEXIST) return false;
    note(status);
    return true;
  }

  void removeDirectory(int parent, const char* name, bool isTop) {
    constexpr int kMaximumPasses = 8;  // some file systems skip entries of a list under removal
    DirectoryReader directory(open(parent, name));
    if (!directory.isOpen()) return note(errno);
    if (isTop) removeInfoPlist(directory.fd());
    const int errorsBefore = errorCount_;
    for (int pass = 0; pass < kMaximumPasses; ++pass) {
      removeEntries(directory);
      if (unlink(parent, name, AT_REMOVEDIR) || errorCount_ != errorsBefore) return;
      directory.rewind();
    }
    note(ENOTEMPTY);
  }

  // A process that is killed half-way must not leave what looks like a whole bundle.
  void removeInfoPlist(int bundle) {
    const ScopedFd contents = open(bundle, "Contents");
    if (contents.isValid()) unlink(contents.get(), "Info.plist", 0);
  }

  void removeEntries(DirectoryReader& directory) {
    while (const dirent* entry = directory.next()) {
      if (entry->d_type == DT_DIR || !unlink(directory.fd(), entry->d_name, 0)) {
        removeDirectory(directory.fd(), entry->d_name, false);
      }
    }
    note(errno);
  }

  ScopedFd open(int parent, const char* name) {
    ScopedFd fd(openat(parent, name, kDirectoryFlags | O_NOFOLLOW));
    if (!fd.isValid() && errno == EACCES &&
        fchmodat(parent, name, S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
      fd.reset(openat(parent, name, kDirectoryFlags | O_NOFOLLOW));
    }
    return fd;
  }

  // Entries leave a directory only when it is writable, whatever their own mode. The one that holds
  // the whole tree is not part of it and stays as it is.
  bool makeWritable(int directory) const {
    struct stat status;
    return directory != outside_ && fstat(directory, &status) == 0 &&
           (status.st_mode & S_IRWXU) != S_IRWXU &&
           fchmod(directory, (status.st_mode & 07777U) | S_IRWXU) == 0;
  }

  void note(int code) {
    if (code == 0 || code == ENOENT) return;
    if (errorCount_++ == 0) firstError_ = code;
  }

  int outside_ = AT_FDCWD;
  int firstError_ = 0;
  int errorCount_ = 0;
};

void removeAbandonedPartials(int parent, std::string_view name) {
  DirectoryReader directory(ScopedFd(openat(parent, ".", kDirectoryFlags)));
  if (!directory.isOpen()) return;
  const std::string prefix = partialPrefix(name);
  while (const dirent* entry = directory.next()) {
    if (isAbandonedPartial(entry->d_name, prefix)) TreeRemover().remove(parent, entry->d_name);
  }
}

// --- Copying. ---

// From the present offsets of both to the end of `source`.
int copyByBuffer(int source, int target) {
  constexpr std::size_t kBufferSize = std::size_t{64} << 10U;
  const std::unique_ptr<char[]> buffer(new char[kBufferSize]);
  for (;;) {
    const ssize_t count = read(source, buffer.get(), kBufferSize);
    if (count == 0) return 0;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (const int status = writeAll(target, buffer.get(), static_cast<std::size_t>(count))) {
      return status;
    }
  }
}

bool meansNotSupported(int code) {
  return code == EXDEV || code == EINVAL || code == ENOSYS || code == EOPNOTSUPP || code == EPERM;
}

int copyContents(int source, int target, off_t size) {
  constexpr std::size_t kLargestChunk = std::size_t{1} << 30U;
  if (size == 0) return copyByBuffer(source, target);  // or a file of unknown size
  off_t copied = 0;
  while (copied < size) {
    const ssize_t count = copy_file_range(source, nullptr, target, nullptr, kLargestChunk, 0);
    if (count > 0) {
      copied += count;
    } else if (count == 0 || meansNotSupported(errno)) {
      return copyByBuffer(source, target);  // some file systems give no bytes and no error
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

class TreeCopier {
 public:
  // Copies the entry `name` of the directory `source` to `newName` in the directory `target`.
  // @return 0, or the error; what was made is left in place then.
  int copy(int source, const char* name, int target, const char* newName) {
    struct stat status;
    if (fstatat(source, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (S_ISLNK(status.st_mode)) return copyLink(source, name, target, newName, status);
    if (S_ISDIR(status.st_mode)) return copyDirectory(source, name, target, newName);
    if (S_ISREG(status.st_mode)) return copyFile(source, name, target, newName);
    return EINVAL;  // a pipe, socket or device has no contents to copy
  }

 private:
  int copyEntry(int source, const dirent& entry, int target) {
    switch (entry.d_type) {
      case DT_REG:
        return copyFile(source, entry.d_name, target, entry.d_name);
      case DT_DIR:
        return copyDirectory(source, entry.d_name, target, entry.d_name);
      default:
        return copy(source, entry.d_name, target, entry.d_name);
    }
  }

  int copyFile(int source, const char* name, int target, const char* newName) {
    // Not blocking, since a pipe may have taken the file's place.
    const ScopedFd from(openat(source, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    if (!from.isValid() || fstat(from.get(), &status) != 0) return errno;
    if (!S_ISREG(status.st_mode)) return EINVAL;
    ScopedFd to(
        openat(target, newName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to.isValid()) return errno;
    if (const int code = copyContents(from.get(), to.get(), status.st_size)) return code;
    if (const int code = applyModeAndTimes(to.get(), status)) return code;
    return statusOf(close(to.release()));
  }

  int copyLink(int source, const char* name, int target, const char* newName,
               const struct stat& status) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlinkat(source, name, text.data(), text.size() - 1);
    if (length < 0) return errno;
    text[static_cast<std::size_t>(length)] = '\0';
    if (symlinkat(text.data(), target, newName) != 0) return errno;
    const timespec times[] = {status.st_atim, status.st_mtim};
    return statusOf(utimensat(target, newName, times, AT_SYMLINK_NOFOLLOW));
  }

  int copyDirectory(int source, const char* name, int target, const char* newName) {
    ScopedFd from(openat(source, name, kDirectoryFlags | O_NOFOLLOW));
    struct stat status;
    if (!from.isValid() || fstat(from.get(), &status) != 0) return errno;
    if (status.st_dev == rootDevice_ && status.st_ino == rootInode_) return EINVAL;
    if (mkdirat(target, newName, S_IRWXU) != 0) return errno;
    const ScopedFd to(openat(target, newName, kDirectoryFlags | O_NOFOLLOW));
    if (!to.isValid() || !noteRoot(to.get())) return errno;
    DirectoryReader directory(std::move(from));
    if (!directory.isOpen()) return errno;
    while (const dirent* entry = directory.next()) {
      if (const int code = copyEntry(directory.fd(), *entry, to.get())) return code;
    }
    if (errno != 0) return errno;
    return applyModeAndTimes(to.get(), status);
  }

  // Remembers the first directory made, which must not be met among the sources: a tree cannot be
  // copied into itself.
  bool noteRoot(int made) {
    if (rootInode_ != 0) return true;
    struct stat status;
    if (fstat(made, &status) != 0) return false;
    rootDevice_ = status.st_dev;
    rootInode_ = status.st_ino;
    return true;
  }

  // The copy belongs to its maker, so that a mode that lends its owner's rights must not go along
  // with another's file.
  int applyModeAndTimes(int fd, const struct stat& status) const {
    const mode_t kept = status.st_uid == maker_ ? 07777U : 0777U;
    if (fchmod(fd, status.st_mode & kept) != 0) return errno;
    const timespec times[] = {status.st_atim, status.st_mtim};
    return statusOf(futimens(fd, times));
  }

  const uid_t maker_ = geteuid();
  dev_t rootDevice_ = 0;
  ino_t rootInode_ = 0;
};

int renameWithoutReplacing(int directory, const char* from, const char* to) {
  if (renameat2(directory, from, directory, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  struct stat status;  // a file system without that kind of renaming
  if (fstatat(directory, to, &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return statusOf(renameat(directory, from, directory, to));
}

int copyBeside(const std::string& source, int parent, const std::string& name) {
  struct stat status;
  if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  int code = EEXIST;
  std::string partial;
  while (code == EEXIST) {  // left by an earlier process that had this one's ID
    partial = nextPartialName(name);
    code = TreeCopier().copy(AT_FDCWD, source.c_str(), parent, partial.c_str());
  }
  if (code == 0) code = renameWithoutReplacing(parent, partial.c_str(), name.c_str());
  if (code != 0) TreeRemover().remove(parent, partial.c_str());
  return code;
}

}  // namespace

bool fileExistsAtPath(const std::string& path) noexcept {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

std::optional<Error> createDirectoryAtPath(const std::string& path) {
  const std::string wanted(withoutTrailingSlashes(path));
  if (mkdir(wanted.c_str(), 0777) == 0) return std::nullopt;
  int code = errno;
  if (code == ENOENT && !wanted.empty()) {
    const std::string parent = splitPath(wanted).directory;
    if (parent == wanted) return errorFrom(code, path);
    if (auto error = createDirectoryAtPath(parent)) return error;
    code = statusOf(mkdir(wanted.c_str(), 0777));
  }
  if (code != 0 && isDirectory(wanted)) return std::nullopt;
  return errorFrom(code, path);
}

std::optional<Error> removeItemAtPath(const std::string& path) {
  return errorFrom(
      TreeRemover().remove(AT_FDCWD, std::string(withoutTrailingSlashes(path)).c_str()), path);
}

std::optional<Error> copyPath(const std::string& source, const std::string& destination) {
  const SplitPath target = splitPath(destination);
  if (target.name.empty()) return errorFrom(EEXIST, destination);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return errorFrom(errno, destination);
  removeAbandonedPartials(parent.get(), target.name);
  const std::string from(withoutTrailingSlashes(source));
  return errorFrom(copyBeside(from, parent.get(), target.name), destination);
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
  std::string home(withoutTrailingSlashes(g_get_home_dir()));
  if (path == "~") return home;
  return home == "/" ? path.substr(1) : home + path.substr(1);
}

}  // namespace platform
