#include "ClientComm/platform/posix/settings_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <optional>

#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/posix/atomic_file.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/recovery_copy.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/posix/user_folders.h"

namespace clientcomm {
namespace {

// Not blocking, since a pipe may have taken the file's place.
constexpr int kCommonFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kWriteFlags = O_RDWR | O_NOFOLLOW | kCommonFlags;

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

int readContent(int file, std::string& bytes) {
  return readRegularFile(file, kMaximumSettingsFileSize, bytes).code();
}

// Not emptied first: a small file that is written over at once is never seen without content.
int setContent(int file, std::string_view bytes) {
  if (lseek(file, 0, SEEK_SET) < 0) return errno;
  if (const Status written = writeAll(file, bytes.data(), bytes.size()); !written.isOk()) {
    return written.code();
  }
  if (ftruncate(file, static_cast<off_t>(bytes.size())) != 0) return errno;
  return flushData(file).code();
}

// Completes the write of a process that died and removes its copy.
// @return false when that process lives, or the file or the copy cannot be written.
bool finishWrite(const std::string& target, RecoveryCopy& copy) {
  if (!copy.takeOver()) return false;
  const ScopedFd file(open(target.c_str(), kWriteFlags));
  std::string current;
  if (!file.isValid() || readContent(file.get(), current) != 0) return false;
  if (copy.isCutShort(current) && setContent(file.get(), copy.after()) != 0) return false;
  copy.remove();
  return true;
}

// Reads the content `before` and makes the copy of the write. One process writes at a time.
int prepareWrite(int file, const std::string& target, std::string_view after, std::string& before,
                 std::optional<RecoveryCopy>& copy) {
  constexpr std::chrono::seconds kLimit{1};
  constexpr timespec kPause = {0, 5'000'000};
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  do {
    if (const int code = readContent(file, before)) return code;
    const int code = RecoveryCopy::make(target, before, after, copy);
    if (code == 0) {
      std::string current;
      if (readContent(file, current) == 0 && current == before) return 0;
      copy->remove();  // the content changed before the copy was there
      copy.reset();
    } else if (code == EEXIST) {
      auto other = RecoveryCopy::find(target);
      if (other && !finishWrite(target, *other)) nanosleep(&kPause, nullptr);
    } else {
      return code;
    }
  } while (std::chrono::steady_clock::now() < deadline);
  return EBUSY;
}

int writeInPlace(const std::string& target, std::string_view bytes) {
  const ScopedFd file(open(target.c_str(), kWriteFlags));
  if (!file.isValid()) return errno;
  std::string before;
  std::optional<RecoveryCopy> copy;
  if (const int code = prepareWrite(file.get(), target, bytes, before, copy)) return code;
  const int code = setContent(file.get(), bytes);
  // Where not even the old content can be put back, the next reader needs the copy.
  if (code == 0 || setContent(file.get(), before) == 0) copy->remove();
  return code;
}

// Whether a replacement by rename changes nothing but the content.
bool isReplaceable(const std::string& target, const struct stat& status) {
  return status.st_nlink == 1 && status.st_uid == geteuid() && !hasExtendedAttributes(target);
}

}  // namespace

int readSettingsFile(const std::string& path, std::string& bytes) {
  constexpr int kMostReads = 8;
  const std::string target = targetOfLinks(path);
  for (int reads = 1;; ++reads) {
    const ScopedFd file(open(target.c_str(), O_RDONLY | kCommonFlags));
    struct stat before;
    struct stat after;
    if (!file.isValid() || fstat(file.get(), &before) != 0) return errno;
    if (const int code = readContent(file.get(), bytes)) return code;
    if (auto copy = RecoveryCopy::find(target)) {
      if (copy->isCutShort(bytes)) bytes = copy->after();
      if (mayReplaceAt(path)) finishWrite(target, *copy);
      return 0;
    }
    // A change meanwhile may have been a write in place, whose copy is gone by now.
    if (fstat(file.get(), &after) != 0) return errno;
    if (FileSignature(before, {}) == FileSignature(after, {}) || reads == kMostReads) return 0;
  }
}

int writeSettingsFile(const std::string& path, std::string_view bytes, WriteForm form,
                      mode_t modeOfNew) {
  if (!mayReplaceAt(path)) return ELOOP;
  const std::string target = targetOfLinks(path);
  struct stat status;
  if (lstat(target.c_str(), &status) != 0) {
    return errno == ENOENT ? replaceFile(target, bytes, modeOfNew).code() : errno;
  }
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if (faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) return errno;
  if (form == WriteForm::kByRename && isReplaceable(target, status)) {
    const int code = replaceFile(target, bytes, modeOfNew).code();
    if (code != EACCES && code != EPERM && code != EROFS) return code;
  }
  return writeInPlace(target, bytes);
}

}  // namespace clientcomm
