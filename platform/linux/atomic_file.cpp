#include "platform/linux/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "platform/linux/directory_reader.h"
#include "platform/linux/io.h"
#include "platform/linux/partial_name.h"
#include "platform/linux/scoped_fd.h"
#include "platform/linux/user_folders.h"
#include "platform/path.h"

namespace platform {
namespace {

void removeAbandonedPartials(int parent, std::string_view name) {
  DirectoryReader directory(ScopedFd(openat(parent, ".", kDirectoryFlags)));
  if (!directory.isOpen()) return;
  const std::string prefix = partialPrefix(name);
  while (const dirent* entry = directory.next()) {
    if (isAbandonedPartial(entry->d_name, prefix)) unlinkat(parent, entry->d_name, 0);
  }
}

// Where writing to `path` leads in the end, through the symbolic links that may stand there.
std::string targetOfLinks(std::string path) {
  constexpr int kMaximumLinks = 40;
  std::array<char, PATH_MAX> text;
  for (int i = 0; i < kMaximumLinks; ++i) {
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    if (length <= 0) break;
    const std::string_view target(text.data(), static_cast<std::size_t>(length));
    path = target.starts_with('/')
               ? std::string(target)
               : stringByAppendingPathComponent(splitPath(path).directory, target);
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
  if (!mayReplaceAt(path)) return ELOOP;
  const SplitPath target = splitPath(targetOfLinks(path));
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

}  // namespace platform
