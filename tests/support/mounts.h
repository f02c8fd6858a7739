#pragma once

#include <string>

namespace support {

/// Gives this process, and what it starts, mounts of its own. They are gone with the process.
/// @return false where that is refused.
bool ownMounts();

/// A file system of a type of its own, mounted where only this process sees it. The loop device of
/// a disk file is detached by the kernel together with the mount.
class MountedFileSystem {
 public:
  /// Mounts a new file system of `type` ("tmpfs", "ext4", "btrfs" or "overlay") over the folder
  /// `path`, made where it is missing. An overlay shows what the folder holds, under inode numbers
  /// of more than 32 bits. `ownMounts` must have succeeded before.
  MountedFileSystem(const std::string& type, const std::string& path);
  ~MountedFileSystem();
  MountedFileSystem(const MountedFileSystem&) = delete;
  MountedFileSystem& operator=(const MountedFileSystem&) = delete;

  /// Why it could not be mounted on this machine; empty when it is mounted.
  const std::string& problem() const { return problem_; }

 private:
  std::string mountTmpfs() const;
  std::string mountOverlay() const;
  std::string mountDisk(const std::string& type) const;

  std::string path_;
  std::string problem_;
};

}  // namespace support
