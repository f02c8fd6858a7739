#include "ClientComm/platform/posix/tree_remover.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "ClientComm/platform/posix/directory_reader.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

class TreeRemover {
 public:
  // @return the first failure; the rest is removed all the same.
  Status remove(int parent, const char* name) {
    outside_ = parent;
    if (!unlink(parent, name, 0)) removeDirectory(parent, name);
    return std::move(firstError_);
  }

 private:
  // @return false when the entry is still there because it is a directory, or one with entries.
  bool unlink(int parent, const char* name, int flags) {
    int status = statusOf(unlinkat(parent, name, flags));
    if (status == EACCES && makeWritable(parent)) status = statusOf(unlinkat(parent, name, flags));
    if (status == EISDIR || status == ENOTEMPTY || status == EEXIST) return false;
    note(Status::ofFile(status, "unlinkat", name));
    return true;
  }

  void removeDirectory(int parent, const char* name) {
    constexpr int kMaximumPasses = 8;  // some file systems skip entries of a list under removal
    DirectoryReader directory(open(parent, name));
    if (!directory.isOpen()) return note(Status::ofFile(errno, "openat", name));
    const int errorsBefore = errorCount_;
    for (int pass = 0; pass < kMaximumPasses; ++pass) {
      const bool isFirst = firstError_.isOk();
      removeEntries(directory);
      if (isFirst) {
        Status inside = std::move(firstError_).below(name);
        firstError_ = std::move(inside);
      }
      if (unlink(parent, name, AT_REMOVEDIR) || errorCount_ != errorsBefore) return;
      directory.rewind();
    }
    note(Status::ofFile(ENOTEMPTY, "unlinkat", name));
  }

  void removeEntries(DirectoryReader& directory) {
    while (const dirent* entry = directory.next()) {
      if (entry->d_type == DT_DIR || !unlink(directory.fd(), entry->d_name, 0)) {
        removeDirectory(directory.fd(), entry->d_name);
      }
    }
    note(Status::ofFile(errno, "readdir"));
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

  void note(Status status) {
    if (status.isOk() || status.code() == ENOENT) return;
    if (errorCount_++ == 0) firstError_ = std::move(status);
  }

  int outside_ = AT_FDCWD;
  Status firstError_;
  int errorCount_ = 0;
};

}  // namespace

Status removeTree(int parent, const char* name) { return TreeRemover().remove(parent, name); }

}  // namespace clientcomm
