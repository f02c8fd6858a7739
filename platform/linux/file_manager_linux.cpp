#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <memory>
#include <utility>

#include "platform/file_manager.h"
#include "platform/linux/atomic_file.h"
#include "platform/linux/scoped_fd.h"

namespace platform {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

std::optional<Error> errorFrom(int code, const std::string& path) {
  if (code == 0) return std::nullopt;
  return Error{kFileErrorDomain, code, {{"FilePath", path}}};
}

// The result of a system call that gives -1 on failure, as an errno value.
int statusOf(int result) { return result < 0 ? errno : 0; }

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

struct SplitPath {
  std::string directory;
  std::string name;
};

SplitPath split(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {".", std::string(path)};
  return {std::string(path.substr(0, std::max<std::size_t>(slash, 1))),
          std::string(path.substr(slash + 1))};
}

bool isDirectory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The entries of an open directory, without "." and "..".
class DirectoryReader {
 public:
  // `errno` tells why a reader is not open, as it does for the descriptor.
  explicit DirectoryReader(ScopedFd fd) : stream_(fd.isValid() ? fdopendir(fd.get()) : nullptr) {
    if (stream_) static_cast<void>(fd.release());
  }
  bool isOpen() const { return stream_ != nullptr; }
  int fd() const { return dirfd(stream_.get()); }
  void rewind() { rewinddir(stream_.get()); }

  // Null at the end, with errno 0, and on failure.
  const dirent* next() {
    for (;;) {
      errno = 0;
      const dirent* entry = readdir(stream_.get());
      if (entry == nullptr) return nullptr;
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") return entry;
    }
  }

 private:
  struct Close {
    void operator()(DIR* stream) const { closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
};

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

// --- Names of what is being built beside its destination. The process's ID in the name tells the
// next one whether the builder is still at work. ---

std::string partialPrefix(std::string_view name) {
  constexpr std::size_t kLongestKept = 200;  // leaves room for the rest within NAME_MAX
  return "." + std::string(name.substr(0, kLongestKept)) + ".partial-";
}

std::string nextPartialName(std::string_view name) {
  static std::atomic<unsigned> counter = 0;
  return partialPrefix(name) + std::to_string(getpid()) + "-" + std::to_string(++counter);
}

// Whether `entry` is a partial of a process that has ended.
bool isAbandonedPartial(std::string_view entry, std::string_view prefix) {
  if (!entry.starts_with(prefix)) return false;
  entry.remove_prefix(prefix.size());
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(entry.data(), entry.data() + entry.size(), pid);
  if (error != std::errc() || end == entry.data() + entry.size() || *end != '-') return false;
  return pid > 0 && kill(pid, 0) != 0 && errno == ESRCH;
}

void removeAbandonedPartials(int parent, std::string_view name) {
  DirectoryReader directory(ScopedFd(openat(parent, ".", kDirectoryFlags)));
  if (!directory.isOpen()) return;
  const std::string prefix = partialPrefix(name);
  while (const dirent* entry = directory.next()) {
    if (isAbandonedPartial(entry->d_name, prefix)) TreeRemover().remove(parent, entry->d_name);
  }
}

// --- Copying. ---

int writeAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, bytes, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return 0;
}

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

// --- Replacing a file. ---

// Where writing to `path` leads in the end, through the symbolic links that may stand there.
std::string targetOfLinks(std::string path) {
  constexpr int kMaximumLinks = 40;
  std::array<char, PATH_MAX> text;
  for (int i = 0; i < kMaximumLinks; ++i) {
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    if (length <= 0) break;
    const std::string_view target(text.data(), static_cast<std::size_t>(length));
    path = target.starts_with('/') ? std::string(target)
                                   : stringByAppendingPathComponent(split(path).directory, target);
  }
  return path;
}

// Gives the new file the owner and mode of the old one. Where the group cannot be kept, the new one
// gets no more than others had.
int takeOverOwnerAndMode(int fd, const struct stat& old) {
  struct stat made;
  if (fstat(fd, &made) != 0) return errno;
  mode_t mode = old.st_mode & 07777U;
  if (made.st_uid != old.st_uid) {
    if (fchown(fd, old.st_uid, old.st_gid) != 0) return errno;
  } else if (made.st_gid != old.st_gid && fchown(fd, old.st_uid, old.st_gid) != 0) {
    mode = (mode & 0707U) | ((mode & 07U) << 3U);
  }
  return statusOf(fchmod(fd, mode));
}

int writeAndRename(int parent, const std::string& partial, const std::string& name,
                   std::string_view bytes, mode_t modeOfNew) {
  struct stat old;
  const bool isNew = fstatat(parent, name.c_str(), &old, AT_SYMLINK_NOFOLLOW) != 0;
  if (isNew && errno != ENOENT) return errno;
  if (!isNew && !S_ISREG(old.st_mode)) return EINVAL;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  ScopedFd fd(openat(parent, partial.c_str(), kFlags, isNew ? modeOfNew : 0600));
  if (!fd.isValid()) return errno;
  if (!isNew) {
    if (const int code = takeOverOwnerAndMode(fd.get(), old)) return code;
  }
  if (const int code = writeAll(fd.get(), bytes.data(), bytes.size())) return code;
  if (close(fd.release()) != 0) return errno;
  return statusOf(renameat(parent, partial.c_str(), parent, name.c_str()));
}

}  // namespace

int readSettingsFile(const std::string& path, std::string& bytes) {
  const ScopedFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status;
  if (!fd.isValid() || fstat(fd.get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if (status.st_size > static_cast<off_t>(kMaximumSettingsFileSize)) return EFBIG;
  bytes.resize(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count = read(fd.get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return 0;
}

int replaceFile(const std::string& path, std::string_view bytes, mode_t modeOfNew) {
  const SplitPath target = split(targetOfLinks(path));
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return errno;
  removeAbandonedPartials(parent.get(), target.name);
  int code = EEXIST;
  std::string partial;
  while (code == EEXIST) {  // left by an earlier process that had this one's ID
    partial = nextPartialName(target.name);
    code = writeAndRename(parent.get(), partial, target.name, bytes, modeOfNew);
  }
  if (code != 0) unlinkat(parent.get(), partial.c_str(), 0);
  return code;
}

bool fileExistsAtPath(const std::string& path) noexcept {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

std::optional<Error> createDirectoryAtPath(const std::string& path) {
  const std::string wanted(withoutTrailingSlashes(path));
  if (mkdir(wanted.c_str(), 0777) == 0) return std::nullopt;
  int code = errno;
  if (code == ENOENT && !wanted.empty()) {
    const std::string parent = split(wanted).directory;
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
  const SplitPath target = split(destination);
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

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
  while (component.starts_with('/')) component.remove_prefix(1);
  path = withoutTrailingSlashes(path);
  std::string joined(path);
  if (!path.empty() && !component.empty() && path != "/") joined += '/';
  return joined.append(component);
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string pathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

}  // namespace platform
