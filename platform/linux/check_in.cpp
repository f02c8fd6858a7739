#include "platform/linux/check_in.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string_view>

#include "platform/bundle.h"
#include "platform/file_manager.h"
#include "platform/linux/process_text.h"
#include "platform/linux/runtime_file.h"
#include "platform/linux/runtime_folder.h"
#include "platform/process_manager.h"
#include "platform/property_list.h"

namespace platform {
namespace {

constexpr char kStartTimeKey[] = "StartTime";
constexpr std::string_view kPrefix = "process.";

// The process ID that is all of `text`; 0 when it is none.
pid_t processIDIn(std::string_view text) noexcept {
  pid_t pid = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), pid);
  const bool isWhole = result.ec == std::errc() && result.ptr == text.data() + text.size();
  return isWhole && pid > 0 ? pid : 0;
}

// The process that wrote a record and must remove it; a forked copy of it must not.
std::atomic<pid_t> writer = 0;

std::string pathOfDescriptor(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

std::string recordName(pid_t pid) { return std::string(kPrefix) + std::to_string(pid); }

std::string textOf(const PropertyListDictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry != dictionary.end() ? entry->second.stringValue().value_or("") : "";
}

std::optional<std::uint64_t> startTimeIn(const PropertyListDictionary& dictionary) {
  const auto entry = dictionary.find(kStartTimeKey);
  if (entry == dictionary.end()) return std::nullopt;
  if (const auto* number = std::get_if<std::int64_t>(&entry->second.variant())) {
    return static_cast<std::uint64_t>(*number);
  }
  const auto* number = std::get_if<std::uint64_t>(&entry->second.variant());
  return number != nullptr ? std::optional(*number) : std::nullopt;
}

std::optional<CheckInRecord> readRecord(int folder, const std::string& name) {
  const auto bytes = readRuntimeFile(folder, name);
  return bytes ? checkInRecordFromBytes(*bytes) : std::nullopt;
}

bool isStaleRecord(int folder, const std::string& name, pid_t pid) {
  const auto startTime = processStartTime(pid);
  const auto record = startTime ? readRecord(folder, name) : std::nullopt;
  return !record || record->startTime != *startTime;
}

// A file on its way to its name stays there only when its process is killed in between. Another
// process may have the same ID by now, so an old file is stale as well.
bool isStaleTemporary(int folder, const std::string& name, pid_t pid) {
  constexpr std::time_t kLongestInTheMaking = 60;  // s; it takes less than a millisecond
  struct stat status = {};
  if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return !processStartTime(pid) || std::time(nullptr) - status.st_mtim.tv_sec > kLongestInTheMaking;
}

void clearStaleFiles(int folder) {
  for (const std::string& name : contentsOfDirectoryAtPath(pathOfDescriptor(folder))) {
    const pid_t maker = processOfTemporaryName(name);
    const pid_t pid = maker != 0 ? 0 : processOfRecordName(name);
    const bool isStale = maker != 0 ? isStaleTemporary(folder, name, maker)
                                    : pid != 0 && isStaleRecord(folder, name, pid);
    if (isStale) unlinkat(folder, name.c_str(), 0);
  }
}

void removeOwnRecord() noexcept {
  const pid_t pid = getpid();
  if (writer != pid) return;
  const ScopedFd folder = openRuntimeFolder(false);
  std::array<char, 32> name = {};
  std::snprintf(name.data(), name.size(), "process.%d", pid);
  if (folder.isValid()) unlinkat(folder.get(), name.data(), 0);
}

// What is known of a bundle, for the process `pid` that runs its executable.
std::optional<PropertyListDictionary> recordOf(const Bundle& bundle, pid_t pid) {
  const OptionalString identifier = bundle.bundleIdentifier();
  const auto startTime = processStartTime(pid);
  if (!identifier || !startTime) return std::nullopt;
  PropertyListDictionary record = {{kStartTimeKey, *startTime},
                                   {kCFBundleIdentifierKey, *identifier}};
  if (const auto name = bundle.infoString(kCFBundleNameKey)) record[kCFBundleNameKey] = *name;
  return record;
}

bool writeOwnRecord(int folder, pid_t pid) {
  auto record = recordOf(Bundle::mainBundle(), pid);
  if (!record) return false;
  record->insert_or_assign(kBundlePathKey, Bundle::mainBundle().bundlePath());
  return replaceRuntimeFile(folder, recordName(pid), xmlPropertyList(*record));
}

// The path is left out: the kernel knows it as the process will.
void checkInLaunchedOrThrow(pid_t pid, const Bundle& bundle) {
  const ScopedFd folder = openRuntimeFolder(false);
  const auto record = recordOf(bundle, pid);
  if (!folder.isValid() || !record) return;
  // Not over a record of the process's own, which says more.
  createRuntimeFile(folder.get(), recordName(pid), xmlPropertyList(*record));
}

void checkInOrThrow() {
  const pid_t pid = getpid();
  if (writer == pid || !Bundle::mainBundle().bundleIdentifier()) return;
  const ScopedFd folder = openRuntimeFolder(true);
  if (!folder.isValid()) return;
  clearStaleFiles(folder.get());
  if (!writeOwnRecord(folder.get(), pid)) return;
  // A forked copy inherits the handler that its parent registered.
  static const int registered = std::atexit([] { removeOwnRecord(); });
  static_cast<void>(registered);
  writer = pid;
}

}  // namespace

void checkIn() noexcept {
  try {
    checkInOrThrow();
  } catch (const std::bad_alloc&) {
    // Without a record the process is known as long as its bundle stands.
  }
}

void checkInLaunched(pid_t pid, const Bundle& bundle) noexcept {
  try {
    checkInLaunchedOrThrow(pid, bundle);
  } catch (const std::bad_alloc&) {
    // The process checks in by itself a moment later.
  }
}

std::optional<CheckInRecord> checkInRecordForPID(pid_t pid) {
  const ScopedFd folder = openRuntimeFolder(false);
  if (!folder.isValid()) return std::nullopt;
  auto record = readRecord(folder.get(), recordName(pid));
  if (!record || record->startTime != processStartTime(pid)) return std::nullopt;
  return record;
}

std::optional<CheckInRecord> checkInRecordFromBytes(std::string_view bytes) {
  const auto list = propertyListFromBytes(bytes);
  const auto* const dictionary = list ? list->dictionary() : nullptr;
  const auto startTime = dictionary != nullptr ? startTimeIn(*dictionary) : std::nullopt;
  if (!startTime) return std::nullopt;
  return CheckInRecord{*startTime, textOf(*dictionary, kCFBundleIdentifierKey),
                       textOf(*dictionary, kBundlePathKey), textOf(*dictionary, kCFBundleNameKey)};
}

pid_t processOfRecordName(std::string_view name) noexcept {
  if (!name.starts_with(kPrefix)) return 0;
  name.remove_prefix(kPrefix.size());
  if (name.ends_with(kDraftSuffix)) name.remove_suffix(kDraftSuffix.size());
  return processIDIn(name);
}

pid_t processOfTemporaryName(std::string_view name) noexcept {
  if (name.ends_with(kDraftSuffix)) return processOfRecordName(name);
  if (name.size() <= kFileNameLength || name[kFileNameLength] != '.' ||
      name.find_first_not_of("0123456789abcdef") != kFileNameLength) {
    return 0;
  }
  return processIDIn(name.substr(kFileNameLength + 1));
}

std::optional<std::uint64_t> processStartTime(pid_t pid) noexcept {
  std::array<char, 32> path = {};
  std::snprintf(path.data(), path.size(), "/proc/%d/stat", pid);
  const ScopedFd file(open(path.data(), O_RDONLY | O_CLOEXEC));
  std::array<char, 1024> text;
  const ssize_t length = file.isValid() ? read(file.get(), text.data(), text.size()) : -1;
  if (length <= 0) return std::nullopt;
  return startTimeInStat({text.data(), static_cast<std::size_t>(length)});
}

}  // namespace platform
