#include "ClientComm/platform/posix/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/partial_name.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

// Gives the new file the owner and mode of the old one.
int takeOverOwnerAndMode(int fd, const struct stat& old) {
  struct stat made;
  if (fstat(fd, &made) != 0) return errno;
  const bool isSameOwner = made.st_uid == old.st_uid && made.st_gid == old.st_gid;
  if (!isSameOwner && fchown(fd, old.st_uid, old.st_gid) != 0) return errno;
  return statusOf(fchmod(fd, old.st_mode & 07777U));
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

int replaceFile(const std::string& path, std::string_view bytes, mode_t modeOfNew) {
  const SplitPath target = splitPath(path);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return errno;
  removeAbandonedPartialFiles(parent.get(), target.name);
  int code = EEXIST;
  std::string partial;
  while (code == EEXIST) {  // left by an earlier process that had this one's ID
    partial = nextPartialName(target.name);
    code = writeAndRename(parent.get(), partial, target.name, bytes, modeOfNew);
  }
  if (code != 0) unlinkat(parent.get(), partial.c_str(), 0);
  return code;
}

}  // namespace clientcomm
