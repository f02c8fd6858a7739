#include "ClientComm/platform/posix/file_signature.h"

namespace clientcomm {
namespace {

bool isSame(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool isOlderThanTheTick(const timespec& changed, const timespec& now) {
  // In seconds first: the difference of any two times in milliseconds may not fit.
  constexpr time_t kSurelySettled = FileSignature::kSettlingMilliseconds / 1'000 + 2;
  if (now.tv_sec < changed.tv_sec) return false;
  if (now.tv_sec - changed.tv_sec >= kSurelySettled) return true;
  const std::int64_t age =
      (now.tv_sec - changed.tv_sec) * 1'000 + (now.tv_nsec - changed.tv_nsec) / 1'000'000;
  return age > FileSignature::kSettlingMilliseconds;
}

}  // namespace

std::optional<FileSignature> FileSignature::ofFile(const std::string& path) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileSignature(status, now);
}

std::optional<FileSignature> FileSignature::ofDescriptor(int file) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  struct stat status = {};
  if (fstat(file, &status) != 0) return std::nullopt;
  return FileSignature(status, now);
}

FileSignature::FileSignature(const struct stat& status, const timespec& now)
    : device_(status.st_dev),
      inode_(status.st_ino),
      mode_(status.st_mode),
      size_(status.st_size),
      modified_(status.st_mtim),
      changed_(status.st_ctim),
      isSettled_(isOlderThanTheTick(status.st_ctim, now)) {}

bool FileSignature::operator==(const FileSignature& other) const {
  return device_ == other.device_ && inode_ == other.inode_ && mode_ == other.mode_ &&
         size_ == other.size_ && isSame(modified_, other.modified_) &&
         isSame(changed_, other.changed_);
}

}  // namespace clientcomm
