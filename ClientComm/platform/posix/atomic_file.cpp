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
Status takeOverOwnerAndMode(int fd, const struct stat& old) {
  struct stat made;
  if (fstat(fd, &made) != 0) return Status::ofFile(errno, "fstat");
  const bool isSameOwner = made.st_uid == old.st_uid && made.st_gid == old.st_gid;
  if (!isSameOwner && fchown(fd, old.st_uid, old.st_gid) != 0) {
    return Status::ofFile(errno, "fchown");
  }
  return fileStatus(fchmod(fd, old.st_mode & 07777U), "fchmod");
}

Status writeAndRename(int parent, const std::string& partial, const std::string& name,
                      std::string_view bytes, mode_t modeOfNew) {
  struct stat old;
  const bool isNew = fstatat(parent, name.c_str(), &old, AT_SYMLINK_NOFOLLOW) != 0;
  if (isNew && errno != ENOENT) return Status::ofFile(errno, "fstatat");
  if (!isNew && !S_ISREG(old.st_mode)) return Status::ofFile(EINVAL, "isRegularFile");
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  ScopedFd fd(openat(parent, partial.c_str(), kFlags, isNew ? modeOfNew : 0600));
  if (!fd.isValid()) return Status::ofFile(errno, "openat");
  if (!isNew) {
    if (Status status = takeOverOwnerAndMode(fd.get(), old); !status.isOk()) return status;
  }
  if (Status status = writeAll(fd.get(), bytes.data(), bytes.size()); !status.isOk()) {
    return status;
  }
  if (close(fd.release()) != 0) return Status::ofFile(errno, "close");
  return fileStatus(renameat(parent, partial.c_str(), parent, name.c_str()), "renameat");
}

}  // namespace

Status replaceFile(const std::string& path, std::string_view bytes, mode_t modeOfNew) {
  const SplitPath target = splitPath(path);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return Status::ofFile(errno, "open", target.directory);
  removeAbandonedPartialFiles(parent.get(), target.name);
  Status status;
  std::string partial;
  do {  // EEXIST: left by an earlier process that had this one's ID
    partial = nextPartialName(target.name);
    status = writeAndRename(parent.get(), partial, target.name, bytes, modeOfNew);
  } while (status.code() == EEXIST);
  if (!status.isOk()) discardFile(parent.get(), partial.c_str());
  return std::move(status).at(path);
}

}  // namespace clientcomm
