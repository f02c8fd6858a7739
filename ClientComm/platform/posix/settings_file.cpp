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
#include "ClientComm/platform/reporter.h"

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

Status readContent(int file, std::string& bytes) {
  return readRegularFile(file, kMaximumSettingsFileSize, bytes);
}

// Not emptied first: a small file that is written over at once is never seen without content.
Status setContent(int file, std::string_view bytes) {
  if (lseek(file, 0, SEEK_SET) < 0) return Status::ofFile(errno, "lseek");
  if (Status written = writeAll(file, bytes.data(), bytes.size()); !written.isOk()) return written;
  const auto size = static_cast<off_t>(bytes.size());
  if (ftruncate(file, size) != 0) return Status::ofFile(errno, "ftruncate");
  return flushData(file);
}

// Where it stays, the next reader finds the write complete and removes it.
void removeCopy(RecoveryCopy& copy) {
  const Status removed = copy.remove();
  if (removed.code() != ENOENT) removed.report(DiagnosticCause::kRecoveryCopyLeft);
}

// Completes the write of a process that died and removes its copy.
// @return the failure when that process lives, or the file or the copy cannot be written.
Status finishWrite(const std::string& target, RecoveryCopy& copy) {
  if (Status taken = copy.takeOver(); !taken.isOk()) return taken;
  const ScopedFd file(open(target.c_str(), kWriteFlags));
  if (!file.isValid()) return Status::ofFile(errno, "open", target);
  std::string current;
  if (Status read = readContent(file.get(), current); !read.isOk()) {
    return std::move(read).at(target);
  }
  if (copy.isCutShort(current)) {
    Status written = setContent(file.get(), copy.after());
    if (!written.isOk()) return std::move(written).at(target);
  }
  removeCopy(copy);
  return {};
}

// Reads the content `before` and makes the copy of the write. One process writes at a time.
Status prepareWrite(int file, const std::string& target, std::string_view after,
                    std::string& before, std::optional<RecoveryCopy>& copy) {
  constexpr std::chrono::seconds kLimit{1};
  constexpr timespec kPause = {0, 5'000'000};
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  do {
    if (Status read = readContent(file, before); !read.isOk()) return read;
    Status made = RecoveryCopy::make(target, before, after, copy);
    if (made.isOk()) {
      std::string current;
      if (readContent(file, current).isOk() && current == before) return {};
      removeCopy(*copy);  // the content changed before the copy was there
      copy.reset();
    } else if (made.code() == EEXIST) {
      auto other = RecoveryCopy::find(target);
      if (other && !finishWrite(target, *other).isOk()) nanosleep(&kPause, nullptr);
    } else {
      return made;
    }
  } while (std::chrono::steady_clock::now() < deadline);
  return Status::ofFile(EBUSY, "prepareWrite");
}

Status writeInPlace(const std::string& target, std::string_view bytes) {
  const ScopedFd file(open(target.c_str(), kWriteFlags));
  if (!file.isValid()) return Status::ofFile(errno, "open", target);
  std::string before;
  std::optional<RecoveryCopy> copy;
  Status prepared = prepareWrite(file.get(), target, bytes, before, copy);
  if (!prepared.isOk()) return std::move(prepared).at(target);
  Status written = setContent(file.get(), bytes);
  if (written.isOk() || setContent(file.get(), before).isOk()) {
    removeCopy(*copy);
  }  // Where not even the old content can be put back, the next reader needs the copy.
  return std::move(written).at(target);
}

// Whether a replacement by rename changes nothing but the content.
bool isReplaceable(const std::string& target, const struct stat& status) {
  return status.st_nlink == 1 && status.st_uid == geteuid() && !hasExtendedAttributes(target);
}

}  // namespace

Status readSettingsFile(const std::string& path, std::string& bytes) {
  constexpr int kMostReads = 8;
  const std::string target = targetOfLinks(path);
  for (int reads = 1;; ++reads) {
    const ScopedFd file(open(target.c_str(), O_RDONLY | kCommonFlags));
    if (!file.isValid()) return Status::ofFile(errno, "open", target);
    struct stat before;
    struct stat after;
    if (fstat(file.get(), &before) != 0) return Status::ofFile(errno, "fstat", target);
    if (Status read = readContent(file.get(), bytes); !read.isOk()) {
      return std::move(read).at(target);
    }
    if (auto copy = RecoveryCopy::find(target)) {
      if (copy->isCutShort(bytes)) {
        report(DiagnosticCause::kUnfinishedWrite, target);
        bytes = copy->after();
      }
      if (mayReplaceAt(path)) finishWrite(target, *copy).ignore();  // else the next reader does
      return {};
    }
    // A change meanwhile may have been a write in place, whose copy is gone by now.
    if (fstat(file.get(), &after) != 0) return Status::ofFile(errno, "fstat", target);
    if (FileSignature(before, {}) == FileSignature(after, {}) || reads == kMostReads) return {};
  }
}

Status writeSettingsFile(const std::string& path, std::string_view bytes, WriteForm form,
                         mode_t modeOfNew) {
  if (!mayReplaceAt(path)) return Status::ofFile(ELOOP, "mayReplaceAt", path);
  const std::string target = targetOfLinks(path);
  struct stat status;
  if (lstat(target.c_str(), &status) != 0) {
    if (errno == ENOENT) return replaceFile(target, bytes, modeOfNew);
    return Status::ofFile(errno, "lstat", target);
  }
  if (!S_ISREG(status.st_mode)) return Status::ofFile(EINVAL, "isRegularFile", target);
  if (faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) {
    return Status::ofFile(errno, "faccessat", target);
  }
  if (form == WriteForm::kByRename && isReplaceable(target, status)) {
    Status replaced = replaceFile(target, bytes, modeOfNew);
    const int code = replaced.code();
    if (code != EACCES && code != EPERM && code != EROFS) return replaced;
  }
  return writeInPlace(target, bytes);
}

}  // namespace clientcomm
