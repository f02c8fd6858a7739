#include "ClientComm/platform/linux/process_record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string_view>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/posix/bundle_files.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/property_list.h"

namespace clientcomm {
namespace {

constexpr char kStartTimeKey[] = "StartTime";
// Set in a record that the launcher wrote: the process has not opened to events yet.
constexpr char kIsLaunchingKey[] = "IsLaunching";
// Set in the record of a program beside the bundle's executable.
constexpr char kIsToolKey[] = "IsTool";
// Of the process, by the inode of its PID namespace; process IDs mean nothing in another one.
constexpr char kPIDNamespaceKey[] = "PIDNamespace";
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

std::uint64_t ownPIDNamespace() noexcept {
  struct stat status = {};
  return stat("/proc/self/ns/pid", &status) == 0 ? status.st_ino : 0;
}

std::optional<ProcessRecord> readRecord(int folder, const std::string& name) {
  const auto bytes = readRuntimeFile(folder, name);
  return bytes ? processRecordFromBytes(*bytes) : std::nullopt;
}

// Whether the record is of a process that this one would see if it still ran.
bool isOfOwnNamespace(const ProcessRecord& record, std::uint64_t own) noexcept {
  return record.pidNamespace == 0 || own == 0 || record.pidNamespace == own;
}

bool isStaleRecord(int folder, const std::string& name, pid_t pid, std::uint64_t ownNamespace) {
  const auto record = readRecord(folder, name);
  return !record ||
         (record->startTime != processStartTime(pid) && isOfOwnNamespace(*record, ownNamespace));
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
  const std::uint64_t ownNamespace = ownPIDNamespace();
  for (const std::string& name : contentsOfDirectoryAtPath(pathOfDescriptor(folder))) {
    const pid_t maker = processOfTemporaryName(name);
    const pid_t pid = maker != 0 ? 0 : processOfRecordName(name);
    const bool isStale = maker != 0 ? isStaleTemporary(folder, name, maker)
                                    : pid != 0 && isStaleRecord(folder, name, pid, ownNamespace);
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
  if (const std::uint64_t own = ownPIDNamespace(); own != 0) record[kPIDNamespaceKey] = own;
  return record;
}

// What the launcher wrote tells the path that this process was launched by, and that it is the
// bundle's application, also where a script runs first and then executes another program.
// @return the bundle path in the record; nothing when there is no record.
OptionalString writeOwnRecord(int folder, pid_t pid) {
  const Bundle& bundle = Bundle::mainBundle();
  auto record = recordOf(bundle, pid);
  if (!record) return std::nullopt;
  const auto launched = readRecord(folder, recordName(pid));
  const bool isLaunched = launched && launched->startTime == processStartTime(pid) &&
                          isSameBundle(launched->bundlePath, bundle.bundlePath());
  std::string path = isLaunched ? launched->bundlePath : bundle.bundlePath();
  record->insert_or_assign(kBundlePathKey, path);
  if (!isLaunched && !isMainExecutable(bundle, ownExecutablePath())) {
    record->insert_or_assign(kIsToolKey, true);
  }
  if (!replaceRuntimeFile(folder, recordName(pid), xmlPropertyList(*record))) return std::nullopt;
  return path;
}

void recordLaunchedOrThrow(pid_t pid, const Bundle& bundle) {
  const ScopedFd folder = openRuntimeFolder(false);
  auto record = recordOf(bundle, pid);
  if (!folder.isValid() || !record) return;
  record->insert_or_assign(kBundlePathKey, bundle.bundlePath());
  record->insert_or_assign(kIsLaunchingKey, true);
  // Not over a record of the process's own, which says more.
  createRuntimeFile(folder.get(), recordName(pid), xmlPropertyList(*record));
}

void recordOwnOrThrow() {
  const pid_t pid = getpid();
  if (!Bundle::mainBundle().bundleIdentifier()) return;
  const ScopedFd folder = openRuntimeFolder(true);
  if (!folder.isValid()) return;
  const bool isWritten =
      writer == pid && faccessat(folder.get(), recordName(pid).c_str(), F_OK, 0) == 0;
  if (isWritten) return;
  clearStaleFiles(folder.get());
  const OptionalString path = writeOwnRecord(folder.get(), pid);
  if (!path) return;
  forgetLaunch(folder.get(), *path, pid);
  // A forked copy inherits the handler that its parent registered.
  static const int registered = std::atexit([] { removeOwnRecord(); });
  static_cast<void>(registered);
  writer = pid;
}

}  // namespace

void recordOwnProcess() noexcept {
  try {
    recordOwnOrThrow();
  } catch (const std::bad_alloc&) {
    // Without a record the process is known as long as its bundle stands.
  }
}

void recordLaunchedProcess(pid_t pid, const Bundle& bundle) noexcept {
  try {
    recordLaunchedOrThrow(pid, bundle);
  } catch (const std::bad_alloc&) {
    // The process writes its own record a moment later.
  }
}

std::optional<ProcessRecord> processRecordForPID(pid_t pid) {
  const ScopedFd folder = openRuntimeFolder(false);
  if (!folder.isValid()) return std::nullopt;
  auto record = readRecord(folder.get(), recordName(pid));
  if (!record || record->startTime != processStartTime(pid)) return std::nullopt;
  return record;
}

std::optional<ProcessRecord> processRecordFromBytes(std::string_view bytes) {
  const auto list = propertyListFromBytes(bytes);
  const auto* const dictionary = list ? list->dictionary() : nullptr;
  const auto startTime =
      dictionary != nullptr ? unsignedFor(*dictionary, kStartTimeKey) : std::nullopt;
  if (!startTime) return std::nullopt;
  ProcessRecord record{*startTime, stringFor(*dictionary, kCFBundleIdentifierKey).value_or(""),
                       stringFor(*dictionary, kBundlePathKey).value_or(""),
                       stringFor(*dictionary, kCFBundleNameKey).value_or("")};
  // Launchers of older versions leave the path out, and nothing else tells their records apart.
  record.isOpen = !record.bundlePath.empty() && !flagFor(*dictionary, kIsLaunchingKey);
  record.isTool = flagFor(*dictionary, kIsToolKey);
  record.pidNamespace = unsignedFor(*dictionary, kPIDNamespaceKey).value_or(0);
  return record;
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

}  // namespace clientcomm
