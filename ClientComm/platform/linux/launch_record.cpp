#include "ClientComm/platform/linux/launch_record.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/linux/launch_record_format.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/record_file.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/property_list.h"

namespace clientcomm {
namespace {

using std::chrono::milliseconds;

/// The last launch by this process.
struct OwnLaunch {
  std::string identifier;
  LaunchRecord record;
  bool isReached = false;
  bool isOnDisk = false;
};

OwnLaunch& ownLaunch() {
  static auto* const launch = new OwnLaunch;
  return *launch;
}

// A zombie has no exe link.
bool hasExecutable(pid_t pid) noexcept {
  char byte = 0;
  return readlink(ProcPath::ofProcess(pid, "/exe").c_str(), &byte, 1) >= 0 || errno != ENOENT;
}

// A process of another PID namespace cannot be looked at.
bool isUnseen(const LaunchRecord& record) noexcept {
  return record.pidNamespace != 0 && record.pidNamespace != ownPIDNamespace();
}

bool isProcessAlive(const LaunchRecord& record) noexcept {
  return record.startTime != 0 && processStartTime(record.pid) == record.startTime &&
         hasExecutable(record.pid);
}

milliseconds backOff(int failures) noexcept {
  if (failures < kLaunchesAtOnce) return milliseconds(0);
  constexpr int kDoublingsToLongest = 5;
  const int doublings = std::min(failures - kLaunchesAtOnce, kDoublingsToLongest);
  return std::min(kShortestBackOff * (1 << doublings), kLongestBackOff);
}

PropertyListDictionary contentOf(const LaunchRecord& record) {
  PropertyListDictionary content = {
      {kBundlePathKey, record.bundlePath},           {kBundleStateKey, record.bundleState},
      {kProcessIDKey, std::int64_t{record.pid}},     {kStartTimeKey, record.startTime},
      {kTimeKey, std::int64_t{record.time.count()}}, {kFailuresKey, std::int64_t{record.failures}}};
  if (record.pidNamespace != 0) content[kPIDNamespaceKey] = record.pidNamespace;
  return content;
}

// The number for `key`, at most `limit`; 0 when it is missing.
std::uint64_t numberUpTo(std::uint64_t limit, const PropertyListDictionary& content,
                         std::string_view key) {
  return std::min(unsignedFor(content, key).value_or(0), limit);
}

std::optional<LaunchRecord> recordIn(const PropertyListDictionary& content,
                                     const std::string& bundlePath) {
  constexpr std::uint64_t kMostProcessID = std::numeric_limits<pid_t>::max();
  constexpr std::uint64_t kMostTime = std::numeric_limits<milliseconds::rep>::max();
  const auto pid = unsignedFor(content, kProcessIDKey).value_or(0);
  if (pid == 0 || pid > kMostProcessID) return std::nullopt;
  LaunchRecord record{bundlePath, stringFor(content, kBundleStateKey).value_or(""),
                      static_cast<pid_t>(pid), unsignedFor(content, kStartTimeKey).value_or(0)};
  record.time = milliseconds(numberUpTo(kMostTime, content, kTimeKey));
  record.failures = static_cast<int>(numberUpTo(kMostFailures, content, kFailuresKey));
  record.pidNamespace = unsignedFor(content, kPIDNamespaceKey).value_or(0);
  return record;
}

std::optional<LaunchRecord> readRecord(int folder, const std::string& bundlePath) {
  const auto content = readRecordFile(folder, launchRecordName(bundlePath));
  return content ? recordIn(*content, bundlePath) : std::nullopt;
}

bool isSameLaunch(const LaunchRecord& record, const LaunchRecord& other) noexcept {
  return record.pid == other.pid && record.startTime == other.startTime;
}

}  // namespace

std::optional<LaunchRecord> lastLaunchOf(int folder, const std::string& path) {
  if (auto record = readRecord(folder, path)) return record;
  const OwnLaunch& own = ownLaunch();
  const bool isLost = !own.isOnDisk && !own.isReached && own.record.bundlePath == path;
  return isLost && own.record.pid != 0 ? std::optional(own.record) : std::nullopt;
}

LaunchAdvice launchAdvice(const std::optional<LaunchRecord>& record,
                          const std::string& bundleState) noexcept {
  if (!record || record->bundleState != bundleState) return LaunchAdvice::kLaunch;
  const milliseconds age = timeSinceBoot() - record->time;
  const bool counts =
      isUnseen(*record) ? age >= milliseconds(0) && age < kLaunchLimit : isProcessAlive(*record);
  if (counts) return age < kLaunchLimit ? LaunchAdvice::kIsStarting : LaunchAdvice::kIsHung;
  // The time of an earlier boot can be ahead.
  const bool isDue = age < milliseconds(0) || age >= backOff(record->failures + 1);
  return isDue ? LaunchAdvice::kLaunch : LaunchAdvice::kBackOff;
}

Status noteLaunch(int folder, const std::string& identifier, const LaunchRecord& record) {
  const std::string name = launchRecordName(record.bundlePath);
  PropertyListDictionary content = contentOf(record);
  auto earlier = readRecordFile(folder, name);
  if (earlier && stringFor(*earlier, kBundleStateKey).value_or("") == record.bundleState) {
    keepUnknownKeys(*std::move(earlier), kLaunchRecordKeys, content);
  }
  Status written = replaceRuntimeFile(folder, name, xmlPropertyList(content));
  ownLaunch() = {identifier, record, false, written.isOk()};
  return written;
}

Status forgetLaunch(int folder, const std::string& bundlePath, pid_t pid) {
  const auto record = readRecord(folder, bundlePath);
  const bool isOwn = record && record->pid == pid && record->startTime == processStartTime(pid);
  if (!isOwn) return {};
  const std::string name = launchRecordName(bundlePath);
  return fileStatus(unlinkat(folder, name.c_str(), 0), "unlinkat", name);
}

bool isStillLaunching(const std::string& identifier) noexcept {
  const OwnLaunch& own = ownLaunch();
  return !own.isReached && own.identifier == identifier && isProcessAlive(own.record) &&
         timeSinceBoot() - own.record.time < kLaunchLimit;
}

// Helpers with an older version of the library leave the record in place.
void noteReached(const std::string& identifier) noexcept {
  OwnLaunch& own = ownLaunch();
  if (own.isReached || own.identifier != identifier) return;
  own.isReached = true;
  try {
    const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
    const auto record =
        folder.isValid() ? readRecord(folder.get(), own.record.bundlePath) : std::nullopt;
    if (record && isSameLaunch(*record, own.record)) {
      discardFile(folder.get(), launchRecordName(own.record.bundlePath).c_str());
    }
  } catch (const std::bad_alloc&) {
    // The next launch counts this one as failed.
  }
}

}  // namespace clientcomm
