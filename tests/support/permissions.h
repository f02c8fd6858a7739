#pragma once

#include <linux/capability.h>

#include <array>
#include <string>

namespace support {

/// While it lives, this process is bound by file permissions even where it runs as root.
class BoundByPermissions {
 public:
  BoundByPermissions();
  ~BoundByPermissions();
  BoundByPermissions(const BoundByPermissions&) = delete;
  BoundByPermissions& operator=(const BoundByPermissions&) = delete;

 private:
  std::array<__user_cap_data_struct, 2> before_{};
};

/// A folder that nothing can be removed from or put into while this lives, by whoever is bound by
/// permissions. Made where it is missing.
class SealedFolder {
 public:
  explicit SealedFolder(std::string path);
  ~SealedFolder();
  SealedFolder(const SealedFolder&) = delete;
  SealedFolder& operator=(const SealedFolder&) = delete;

 private:
  std::string path_;
};

}  // namespace support
