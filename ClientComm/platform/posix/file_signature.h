#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <optional>
#include <string>

namespace clientcomm {

/// Tells one state of a file from another without reading it: the rule by which everything that was
/// read from a file and kept is valid. Take the signature before reading. What was read is valid as
/// long as the file's signature is equal, provided that it was settled.
class FileSignature {
 public:
  /// How long after its last change a file may change once more under the same time stamp: 2 s is
  /// the tick of the coarsest file system (FAT), 10 ms that of the slowest kernel clock.
  static constexpr std::int64_t kSettlingMilliseconds = 2'010;

  /// The signature of the file at `path`, links followed; nothing when it cannot be looked at.
  static std::optional<FileSignature> ofFile(const std::string& path);

  /// The same of an open file.
  static std::optional<FileSignature> ofDescriptor(int file);

  /// `now` is the wall clock's time at which `status` was taken.
  FileSignature(const struct stat& status, const timespec& now);

  bool isRegularFile() const { return S_ISREG(mode_); }

  /// Whether every later change shows. Never true of a time stamp in the future.
  bool isSettled() const { return isSettled_; }

  /// Whether both are of the same state of the same file; when they were taken does not count.
  bool operator==(const FileSignature& other) const;

 private:
  dev_t device_;
  ino_t inode_;
  mode_t mode_;
  off_t size_;
  timespec modified_;
  timespec changed_;
  bool isSettled_;
};

}  // namespace clientcomm
