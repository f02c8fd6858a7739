#include "ClientComm/platform/linux/launch_record.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/property_list.h"

namespace clientcomm {
namespace {

using std::chrono::milliseconds;

constexpr char kBundlePathKey[] = "BundlePath";
constexpr char kBundleStateKey[] = "BundleState";
constexpr char kProcessIDKey[] = "ProcessID";
constexpr char kStartTimeKey[] = "StartTime";
constexpr char kTimeKey[] = "Time";
constexpr char kFailuresKey[] = "Failures";

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

std::string recordName(const std::string& bundlePath) {
  return "launch." + fileNameForIdentifier(bundlePath);
}

// A zombie has no exe link.
bool hasExecutable(pid_t pid) noexcept {
  std::array<char, 32> link = {};
  std::snprintf(link.data(), link.size(), "/proc/%d/exe", pid);
  char byte = 0;
  return readlink(link.data(), &byte, 1) >= 0 || errno != ENOENT;
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

// 0 for a missing, negative or oversized number.
std::int64_t numberIn(const PropertyListDictionary& dictionary, std::string_view key) {
  const std::uint64_t number = unsignedFor(dictionary, key).value_or(0);
  return std::in_range<std::int64_t>(number) ? static_cast<std::int64_t>(number) : 0;
}

std::string bytesOf(const LaunchRecord& record) {
  return xmlPropertyList({{kBundlePathKey, record.bundlePath},
                          {kBundleStateKey, record.bundleState},
                          {kProcessIDKey, std::int64_t{record.pid}},
                          {kStartTimeKey, record.startTime},
                          {kTimeKey, std::int64_t{record.time.count()}},
                          {kFailuresKey, std::int64_t{record.failures}}});
}

std::optional<LaunchRecord> readRecord(int folder, const std::string& bundlePath) {
  const auto bytes = readRuntimeFile(folder, recordName(bundlePath));
  const auto list = bytes ? propertyListFromBytes(*bytes) : std::nullopt;
  const auto* const dictionary = list ? list->dictionary() : nullptr;
  if (dictionary == nullptr || numberIn(*dictionary, kProcessIDKey) == 0) return std::nullopt;
  constexpr std::int64_t kMostFailures = 1'000'000;
  return LaunchRecord{
      bundlePath,
      stringFor(*dictionary, kBundleStateKey).value_or(""),
      static_cast<pid_t>(numberIn(*dictionary, kProcessIDKey)),
      static_cast<std::uint64_t>(numberIn(*dictionary, kStartTimeKey)),
      milliseconds(numberIn(*dictionary, kTimeKey)),
      static_cast<int>(std::min(numberIn(*dictionary, kFailuresKey), kMostFailures))};
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
  if (isProcessAlive(*record)) {
    return age < kLaunchLimit ? LaunchAdvice::kIsStarting : LaunchAdvice::kIsHung;
  }
  // The time of an earlier boot can be ahead.
  const bool isDue = age < milliseconds(0) || age >= backOff(record->failures + 1);
  return isDue ? LaunchAdvice::kLaunch : LaunchAdvice::kBackOff;
}

void noteLaunch(int folder, const std::string& identifier, const LaunchRecord& record) {
  const bool isOnDisk = replaceRuntimeFile(folder, recordName(record.bundlePath), bytesOf(record));
  ownLaunch() = {identifier, record, false, isOnDisk};
}

void forgetLaunch(int folder, const std::string& bundlePath, pid_t pid) {
  const auto record = readRecord(folder, bundlePath);
  const bool isOwn = record && record->pid == pid && record->startTime == processStartTime(pid);
  if (isOwn) unlinkat(folder, recordName(bundlePath).c_str(), 0);
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
    const ScopedFd folder = openRuntimeFolder(false);
    const auto record =
        folder.isValid() ? readRecord(folder.get(), own.record.bundlePath) : std::nullopt;
    if (record && isSameLaunch(*record, own.record)) {
      unlinkat(folder.get(), recordName(own.record.bundlePath).c_str(), 0);
    }
  } catch (const std::bad_alloc&) {
    // The next launch counts this one as failed.
  }
}

}  // namespace clientcomm
