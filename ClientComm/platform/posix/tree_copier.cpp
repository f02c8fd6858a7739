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

class TreeCopier {
 public:
  // Copies the entry `name` of the directory `source` to `newName` in the directory `target`.
  // @return the failure; what was made is left in place then.
  Status copy(int source, const char* name, int target, const char* newName) {
    struct stat status;
    if (fstatat(source, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return Status::ofFile(errno, "fstatat", name);
    }
    if (S_ISLNK(status.st_mode)) return copyLink(source, name, target, newName, status);
    if (S_ISDIR(status.st_mode)) return copyDirectory(source, name, target, newName);
    if (S_ISREG(status.st_mode)) return copyFile(source, name, target, newName);
    // A pipe, socket or device has no contents to copy.
    return Status::ofFile(EINVAL, "isRegularFile", name);
  }

 private:
  Status copyEntry(int source, const dirent& entry, int target) {
    switch (entry.d_type) {
      case DT_REG:
        return copyFile(source, entry.d_name, target, entry.d_name);
      case DT_DIR:
        return copyDirectory(source, entry.d_name, target, entry.d_name);
      default:
        return copy(source, entry.d_name, target, entry.d_name);
    }
  }

  Status copyFile(int source, const char* name, int target, const char* newName) {
    // Not blocking, since a pipe may have taken the file's place.
    const ScopedFd from(openat(source, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!from.isValid()) return Status::ofFile(errno, "openat", name);
    struct stat status;
    if (fstat(from.get(), &status) != 0) return Status::ofFile(errno, "fstat", name);
    if (!S_ISREG(status.st_mode)) return Status::ofFile(EINVAL, "isRegularFile", name);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    ScopedFd to(openat(target, newName, kFlags, 0600));
    if (!to.isValid()) return failedTarget("openat", newName);
    if (Status copied = copyContents(from.get(), to.get(), status.st_size); !copied.isOk()) {
      return std::move(copied).at(isOfTarget_ ? newName : name);
    }
    if (const char* const call = applyModeAndTimes(to.get(), status)) {
      return failedTarget(call, newName);
    }
    return close(to.release()) == 0 ? Status() : failedTarget("close", newName);
  }

  Status copyContents(int source, int target, off_t size) {
    if (size == 0) return copyByBuffer(source, target);  // or a file of unknown size
    std::int64_t copied = 0;
    while (copied < size) {
      std::int64_t count = 0;
      Status status = copyInsideKernel(source, target, size - copied, count);
      isOfTarget_ = !status.isOk();
      if (!status.isOk()) return status;
      if (count == 0) return copyByBuffer(source, target);
      copied += count;
    }
    return {};
  }

  // From the present offsets of both to the end of `source`.
  Status copyByBuffer(int source, int target) {
    constexpr std::size_t kBufferSize = std::size_t{64} << 10U;
    const std::unique_ptr<char[]> buffer(new char[kBufferSize]);
    for (;;) {
      const ssize_t count = readSome(source, buffer.get(), kBufferSize);
      if (count <= 0) return fileStatus(count, "read");
      Status status = writeAll(target, buffer.get(), static_cast<std::size_t>(count));
      isOfTarget_ = !status.isOk();
      if (!status.isOk()) return status;
    }
  }

  Status copyLink(int source, const char* name, int target, const char* newName,
                  const struct stat& status) {
    std::array<char, PATH_MAX> text;
    const ssize_t length = readlinkat(source, name, text.data(), text.size() - 1);
    if (length < 0) return Status::ofFile(errno, "readlinkat", name);
    text[static_cast<std::size_t>(length)] = '\0';
    if (symlinkat(text.data(), target, newName) != 0) return failedTarget("symlinkat", newName);
    const timespec times[] = {status.st_atim, status.st_mtim};
    if (utimensat(target, newName, times, AT_SYMLINK_NOFOLLOW) != 0) {
      return failedTarget("utimensat", newName);
    }
    return {};
  }

  Status copyDirectory(int source, const char* name, int target, const char* newName) {
    ScopedFd from(openat(source, name, kDirectoryFlags | O_NOFOLLOW));
    if (!from.isValid()) return Status::ofFile(errno, "openat", name);
    struct stat status;
    if (fstat(from.get(), &status) != 0) return Status::ofFile(errno, "fstat", name);
    if (status.st_dev == rootDevice_ && status.st_ino == rootInode_) {
      return Status::ofFile(EINVAL, "isOutsideCopy", name);
    }
    if (mkdirat(target, newName, S_IRWXU) != 0) return failedTarget("mkdirat", newName);
    const ScopedFd to(openat(target, newName, kDirectoryFlags | O_NOFOLLOW));
    if (!to.isValid() || !noteRoot(to.get())) return failedTarget("openat", newName);
    DirectoryReader directory(std::move(from));
    if (!directory.isOpen()) return Status::ofFile(errno, "fdopendir", name);
    if (Status copied = copyEntries(directory, to.get()); !copied.isOk()) {
      return std::move(copied).below(isOfTarget_ ? newName : name);
    }
    const char* const call = applyModeAndTimes(to.get(), status);
    return call == nullptr ? Status() : failedTarget(call, newName);
  }

  Status copyEntries(DirectoryReader& directory, int target) {
    while (const dirent* entry = directory.next()) {
      if (Status copied = copyEntry(directory.fd(), *entry, target); !copied.isOk()) return copied;
    }
    return Status::ofFile(errno, "readdir");
  }

  Status failedTarget(const char* call, const char* name) {
    isOfTarget_ = true;
    return Status::ofFile(errno, call, name);
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

  // Drops setuid and setgid when the source belongs to someone else.
  // @return the call that failed, with errno set; null on success.
  const char* applyModeAndTimes(int fd, const struct stat& status) const {
    const mode_t kept = status.st_uid == maker_ ? 07777U : 0777U;
    if (fchmod(fd, status.st_mode & kept) != 0) return "fchmod";
    const timespec times[] = {status.st_atim, status.st_mtim};
    return futimens(fd, times) == 0 ? nullptr : "futimens";
  }

  const uid_t maker_ = geteuid();
  dev_t rootDevice_ = 0;
  ino_t rootInode_ = 0;
  bool isOfTarget_ = false;  // whether the failure is of the copy, not of its source
};

}  // namespace

Status copyTree(int source, const char* name, int target, const char* newName) {
  return TreeCopier().copy(source, name, target, newName);
}

}  // namespace clientcomm
