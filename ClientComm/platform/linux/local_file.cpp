#include "ClientComm/platform/linux/local_file.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "ClientComm/platform/fixed_text.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/posix/io.h"

namespace clientcomm {
namespace {

using MountID = std::uint64_t;

constexpr int kPathFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;

// File systems that answer from this machine. Any other is asked only by a process that may wait.
constexpr FixedText<8> kLocalTypes[] = {"bcachefs", "btrfs",    "devtmpfs", "erofs",  "exfat",
                                        "ext2",     "ext3",     "ext4",     "f2fs",   "hfsplus",
                                        "iso9660",  "jfs",      "msdos",    "ntfs3",  "nilfs2",
                                        "overlay",  "reiserfs", "reiser4",  "rootfs", "squashfs",
                                        "tmpfs",    "udf",      "vfat",     "xfs",    "zfs"};

bool isLocalType(std::string_view type) noexcept {
  return std::ranges::any_of(kLocalTypes, [type](std::string_view local) { return local == type; });
}

// Nothing when the kernel does not show the file, or it is larger than any that is known.
std::optional<std::string> readProcFile(const ProcPath& path) {
  constexpr std::size_t kLimit = std::size_t{4} << 20;
  const ScopedFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string text;
  const bool isRead = file.isValid() && readAll(file.get(), kLimit, text).isOk();
  return isRead ? std::optional(std::move(text)) : std::nullopt;
}

std::optional<MountID> numberAfter(std::string_view text, std::string_view field) {
  const auto start = text.find(field);
  if (start == std::string_view::npos) return std::nullopt;
  text.remove_prefix(start + field.size());
  MountID number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

std::optional<MountID> mountOf(int file) {
  const auto status = statusWithoutWaiting(file, "");
  if (status && (status->stx_mask & STATX_MNT_ID) != 0) return status->stx_mnt_id;
  // Before Linux 5.8.
  const auto text = readProcFile(ProcPath::ofDescriptorInfo(file));
  return text ? numberAfter(*text, "mnt_id:\t") : std::nullopt;
}

/// The mounts of local file systems, by the mount table as it is when it is needed first.
class LocalMounts {
 public:
  bool contain(MountID mount) {
    if (!isRead_) read();
    return std::ranges::find(mounts_, mount) != mounts_.end();
  }

 private:
  void read() {
    isRead_ = true;
    const auto table = readProcFile(ProcPath::ofThisProcess("/mountinfo"));
    if (!table) return;
    for (std::string_view rest = *table; !rest.empty();) {
      const std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
      readLine(line);
    }
  }

  // "<mount> <parent> <device> <root> <folder> <options> [<tags>] - <type> <source> <options>"
  void readLine(std::string_view line) {
    constexpr std::string_view kSeparator = " - ";
    const auto separator = line.find(kSeparator);
    const auto mount = numberAfter(line, "");
    if (separator == std::string_view::npos || !mount) return;
    std::string_view type = line.substr(separator + kSeparator.size());
    type = type.substr(0, type.find(' '));
    if (isLocalType(type)) mounts_.push_back(*mount);
  }

  bool isRead_ = false;
  std::vector<MountID> mounts_;
};

// STATX_MNT_ID_UNIQUE, since Linux 6.8; these IDs are never given to another mount.
constexpr unsigned kUniqueMountID = 0x00004000U;

std::optional<MountID> uniqueMountOf(int file) noexcept {
  struct statx status = {};
  constexpr int kFlags = AT_STATX_DONT_SYNC | AT_EMPTY_PATH;
  const bool isKnown = statx(file, "", kFlags, kUniqueMountID, &status) == 0 &&
                       (status.stx_mask & kUniqueMountID) != 0;
  return isKnown ? std::optional(status.stx_mnt_id) : std::nullopt;
}

// Whether the kernel says at once that the mount is of a local file system: the mount table takes
// longer with each mount. The system call of Linux 6.8 and its structures, which the headers of
// earlier systems lack.
bool isLocalByID(MountID unique) noexcept {
  constexpr int kStatmount = 457;
  constexpr std::uint64_t kFileSystemType = 0x20;
  struct {
    std::uint32_t size = 24;
    std::uint32_t unused = 0;
    MountID mount = 0;
    std::uint64_t wanted = kFileSystemType;
  } request;
  struct {
    std::uint32_t size;
    std::uint32_t unused;
    std::uint64_t given;
    std::array<std::uint32_t, 5> others;
    std::uint32_t type;  ///< Where it begins in the texts.
    std::array<std::uint64_t, 59> rest;
    std::array<char, 64> texts;
  } reply = {};
  static_assert(sizeof request == 24 && sizeof reply == 512 + sizeof reply.texts);
  request.mount = unique;
  if (syscall(kStatmount, &request, &reply, sizeof reply, 0) != 0) return false;
  if ((reply.given & kFileSystemType) == 0 || reply.type >= reply.texts.size()) return false;
  reply.texts.back() = '\0';
  return isLocalType(reply.texts.data() + reply.type);
}

/// Mounts that have been found to be of local file systems, by their unique IDs.
class KnownMounts {
 public:
  bool contain(MountID mount) noexcept {
    const std::lock_guard lock(mutex_);
    return std::ranges::find(mounts_, mount) != mounts_.end();
  }
  void add(MountID mount) noexcept {
    const std::lock_guard lock(mutex_);
    mounts_[next_++ % mounts_.size()] = mount;
  }

 private:
  std::mutex mutex_;  // TQHPProcessList is for any thread
  std::array<MountID, 16> mounts_ = {};
  std::size_t next_ = 0;
};

bool isOnLocalMount(int file, LocalMounts& mounts) {
  static KnownMounts& known = *new KnownMounts;
  const auto unique = uniqueMountOf(file);
  if (unique && known.contain(*unique)) return true;
  if (!unique || !isLocalByID(*unique)) {
    const auto mount = mountOf(file);
    if (!mount || !mounts.contain(*mount)) return false;
  }
  if (unique) known.add(*unique);
  return true;
}

/// A file that the kernel finds without asking any file system for a name; invalid where it would
/// have to, where a symbolic link stands in the path, and before Linux 5.12.
ScopedFd openByCachedNames(const std::string& path) {
  open_how how = {};
  how.flags = kPathFlags;
  how.resolve = RESOLVE_CACHED | RESOLVE_NO_SYMLINKS;
  return ScopedFd(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
}

/// Opens a folder after the other, each only once it is known to be on a local file system.
LocalFile openStepByStep(std::string_view path, LocalMounts& mounts) {
  std::optional<MountID> mount;
  ScopedFd file(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (;;) {
    if (!file.isValid()) return {LocalAccess::kMissing, {}};
    const auto own = mountOf(file.get());
    if (!own || (own != mount && !mounts.contain(*own))) return {LocalAccess::kMayBlock, {}};
    mount = own;
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    if (path.empty()) return {LocalAccess::kOpen, std::move(file)};
    const std::string name(path.substr(0, path.find('/')));
    path.remove_prefix(name.size());
    // Opening the root of a mount asks its file system for nothing yet.
    file.reset(openat(file.get(), name.c_str(), kPathFlags));
  }
}

}  // namespace

LocalFile openLocalFile(std::string_view path) {
  LocalMounts mounts;
  ScopedFd file = openByCachedNames(std::string(path));
  if (!file.isValid()) return openStepByStep(path, mounts);
  if (!isOnLocalMount(file.get(), mounts)) return {LocalAccess::kMayBlock, {}};
  return {LocalAccess::kOpen, std::move(file)};
}

std::optional<struct statx> statusWithoutWaiting(int folder, const char* path) noexcept {
  struct statx status = {};
  constexpr unsigned kMask = STATX_TYPE | STATX_INO | STATX_SIZE | STATX_MNT_ID;
  const int flags = AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT | (*path == '\0' ? AT_EMPTY_PATH : 0);
  return statx(folder, path, flags, kMask, &status) == 0 ? std::optional(status) : std::nullopt;
}

Status readLocalFile(int file, std::size_t limit, std::string& bytes) {
  struct stat status = {};
  const ProcPath path = ProcPath::ofDescriptor(file);
  if (fstat(file, &status) != 0) return Status::ofFile(errno, "fstat", path.view());
  if (!S_ISREG(status.st_mode)) return Status::ofFile(EINVAL, "isRegularFile", path.view());
  if (static_cast<std::uintmax_t>(status.st_size) > limit) {
    return Status::ofFile(EFBIG, "fstat", path.view());
  }
  // O_NONBLOCK: no wait for the holder of a lease.
  const ScopedFd opened(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!opened.isValid()) return Status::ofFile(errno, "open", path.view());
  return readAll(opened.get(), limit, bytes).at(path.view());
}

}  // namespace clientcomm
