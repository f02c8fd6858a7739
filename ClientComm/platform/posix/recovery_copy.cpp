#include "ClientComm/platform/posix/recovery_copy.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <memory>
#include <utility>

#include "ClientComm/platform/digest.h"
#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/partial_name.h"
#include "ClientComm/platform/posix/preferences_folder.h"
#include "ClientComm/platform/posix/recovery_copy_format.h"

namespace clientcomm {
namespace {

constexpr std::size_t kLargestCopy = 2 * kMaximumSettingsFileSize + 100;

std::string copyNameOf(std::string_view name) {
  return "." + std::string(name).append(kRecoveryInfix) + std::to_string(geteuid());
}

// Whether a copy in a folder failed for a reason that another folder may not have.
bool isRefusal(int code) {
  return code == EACCES || code == EPERM || code == EROFS || code == ENAMETOOLONG;
}

bool isWritableFolder(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

Status writeCopy(int file, std::string_view before, std::string_view after) {
  const std::string heading = std::string(kRecoveryHeading) + std::to_string(before.size()) + " " +
                              std::to_string(after.size()) + "\n";
  for (const std::string_view part : {std::string_view(heading), before, after}) {
    if (Status written = writeAll(file, part.data(), part.size()); !written.isOk()) return written;
  }
  return flushData(file);
}

// Cuts a number and the `end` behind it off the front of `text`.
std::optional<std::size_t> takeSize(std::string_view& text, char end) {
  std::size_t size = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), size);
  const auto length = static_cast<std::size_t>(rest - text.data());
  if (error != std::errc() || length == text.size() || *rest != end) return std::nullopt;
  text.remove_prefix(length + 1);
  return size;
}

}  // namespace

RecoveryCopy::RecoveryCopy(ScopedFd folder, std::string name, ScopedFd file)
    : folder_(std::move(folder)), name_(std::move(name)), file_(std::move(file)) {}

RecoveryCopy::~RecoveryCopy() {
  // Closing alone would leave it locked by a child that the host forked meanwhile.
  if (file_.isValid()) flock(file_.get(), LOCK_UN);
}

RecoveryCopy::Place RecoveryCopy::placeBeside(const std::string& target) {
  SplitPath path = splitPath(target);
  std::string name = copyNameOf(path.name);
  return {std::move(path.directory), std::move(path.name), std::move(name)};
}

std::optional<RecoveryCopy::Place> RecoveryCopy::placeInPreferences(const std::string& target) {
  const SplitPath path = splitPath(target);
  const std::unique_ptr<char, decltype(&std::free)> folder(
      realpath(path.directory.c_str(), nullptr), &std::free);
  if (!folder) return std::nullopt;
  const std::string canonical = stringByAppendingPathComponent(folder.get(), path.name);
  std::string digest = digestOf(canonical);
  std::string name = copyNameOf(digest);
  return Place{preferencesFolder(), std::move(digest), std::move(name)};
}

Status RecoveryCopy::make(const std::string& target, std::string_view before,
                          std::string_view after, std::optional<RecoveryCopy>& copy) {
  Status beside = makeAt(placeBeside(target), before, after, copy);
  if (!isRefusal(beside.code())) return beside;
  const auto place = placeInPreferences(target);
  return place && makePreferencesFolder().isOk() ? makeAt(*place, before, after, copy)
                                                 : std::move(beside);
}

Status RecoveryCopy::makeAt(const Place& place, std::string_view before, std::string_view after,
                            std::optional<RecoveryCopy>& copy) {
  ScopedFd folder(open(place.folder.c_str(), kDirectoryFlags));
  if (!folder.isValid()) return Status::ofFile(errno, "open", place.folder);
  removeAbandonedPartialFiles(folder.get(), place.base);
  std::string partial;
  ScopedFd file;
  do {  // EEXIST: left by an earlier process that had this one's ID
    partial = nextPartialName(place.base);
    file.reset(openat(folder.get(), partial.c_str(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  } while (!file.isValid() && errno == EEXIST);
  if (!file.isValid()) return Status::ofFile(errno, "openat", place.name).below(place.folder);
  Status made = fileStatus(flock(file.get(), LOCK_EX | LOCK_NB), "flock");
  if (made.isOk()) made = writeCopy(file.get(), before, after);
  if (made.isOk()) {
    made = renameWithoutReplacing(folder.get(), partial.c_str(), place.name.c_str());
  }
  if (!made.isOk()) {
    discardFile(folder.get(), partial.c_str());
    return std::move(made).at(place.name).below(place.folder);
  }
  flushData(folder.get()).ignore();  // the copy is whole; only its name may be lost
  copy = RecoveryCopy(std::move(folder), place.name, std::move(file));
  return {};
}

std::optional<RecoveryCopy> RecoveryCopy::find(const std::string& target) {
  const Place beside = placeBeside(target);
  if (auto copy = findAt(beside)) return copy;
  if (beside.name.size() <= NAME_MAX && isWritableFolder(beside.folder)) return std::nullopt;
  if (faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) return std::nullopt;
  const auto place = placeInPreferences(target);
  return place ? findAt(*place) : std::nullopt;
}

std::optional<RecoveryCopy> RecoveryCopy::findAt(const Place& place) {
  const std::string path = stringByAppendingPathComponent(place.folder, place.name);
  ScopedFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status;
  if (!file.isValid() || fstat(file.get(), &status) != 0) return std::nullopt;
  // Another user's file must not decide what a settings file holds.
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) return std::nullopt;
  ScopedFd folder(open(place.folder.c_str(), kDirectoryFlags));
  if (!folder.isValid()) return std::nullopt;
  std::string bytes;
  if (!readRegularFile(file.get(), kLargestCopy, bytes).isOk()) bytes.clear();
  RecoveryCopy copy(std::move(folder), place.name, std::move(file));
  copy.parse(bytes);
  return copy;
}

void RecoveryCopy::parse(std::string_view bytes) {
  if (!bytes.starts_with(kRecoveryHeading)) return;
  bytes.remove_prefix(kRecoveryHeading.size());
  const auto oldSize = takeSize(bytes, ' ');
  const auto newSize = oldSize ? takeSize(bytes, '\n') : std::nullopt;
  if (!newSize || *oldSize > bytes.size() || bytes.size() - *oldSize != *newSize) return;
  before_ = bytes.substr(0, *oldSize);
  after_ = bytes.substr(*oldSize);
}

Status RecoveryCopy::takeOver() {
  if (flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    return {kLockErrorDomain, errno, "flock", name_};
  }
  struct stat named;
  struct stat locked;
  if (fstatat(folder_.get(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0) {
    return Status::ofFile(errno, "fstatat", name_);
  }
  if (fstat(file_.get(), &locked) != 0) return Status::ofFile(errno, "fstat", name_);
  const bool isNamed = named.st_dev == locked.st_dev && named.st_ino == locked.st_ino;
  return Status::ofFile(isNamed ? 0 : ESTALE, "takeOver", name_);
}

Status RecoveryCopy::remove() {
  return fileStatus(unlinkat(folder_.get(), name_.c_str(), 0), "unlinkat", name_);
}

bool RecoveryCopy::isCutShort(std::string_view current) const {
  if (current == before_ || current == after_) return false;
  if (current.size() > std::max(before_.size(), after_.size())) return false;
  for (std::size_t i = 0; i < current.size(); ++i) {
    const bool isOld = i < before_.size() && current[i] == before_[i];
    const bool isNew = i < after_.size() && current[i] == after_[i];
    if (!isOld && !isNew) return false;
  }
  return true;
}

}  // namespace clientcomm
