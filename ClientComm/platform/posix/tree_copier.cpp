#include "ClientComm/platform/posix/tree_copier.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <memory>
#include <utility>

#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/posix/directory_reader.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

// From the present offsets of both to the end of `source`.
int copyByBuffer(int source, int target) {
  constexpr std::size_t kBufferSize = std::size_t{64} << 10U;
  const std::unique_ptr<char[]> buffer(new char[kBufferSize]);
  for (;;) {
    const ssize_t count = readSome(source, buffer.get(), kBufferSize);
    if (count <= 0) return statusOf(static_cast<int>(count));
    const Status written = writeAll(target, buffer.get(), static_cast<std::size_t>(count));
    if (!written.isOk()) return written.code();
  }
}

int copyContents(int source, int target, off_t size) {
  if (size == 0) return copyByBuffer(source, target);  // or a file of unknown size
  std::int64_t copied = 0;
  while (copied < size) {
    const std::int64_t count = copyInsideKernel(source, target, size - copied);
    if (count < 0) return static_cast<int>(-count);
    if (count == 0) return copyByBuffer(source, target);
    copied += count;
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

}  // namespace

int copyTree(int source, const char* name, int target, const char* newName) {
  return TreeCopier().copy(source, name, target, newName);
}

}  // namespace clientcomm
