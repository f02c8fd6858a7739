#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/record_key.h"

/// The constants of the launch record in docs/files.md. Its other keys are those of
/// a process record: `kBundlePathKey`, `kStartTimeKey` and `kPIDNamespaceKey`.
namespace clientcomm {

/// Begins the name; the file name for the bundle's path follows.
inline constexpr std::string_view kLaunchRecordPrefix = "launch.";

inline constexpr char kBundleStateKey[] = "BundleState";
inline constexpr char kProcessIDKey[] = "ProcessID";
/// Of the launch, in milliseconds after boot.
inline constexpr char kTimeKey[] = "Time";
/// Launches in a row before this one that have not led to an open endpoint.
inline constexpr char kFailuresKey[] = "Failures";

/// More failures count as this many.
inline constexpr std::uint64_t kMostFailures = 1'000'000;

/// How long an application may take from its launch until it takes events.
inline constexpr std::chrono::milliseconds kLaunchLimit = std::chrono::seconds(5);

/// How many launches in a row may end without an open endpoint before the next one is put off, and
/// for how long: each time for twice as long.
inline constexpr int kLaunchesAtOnce = 3;
inline constexpr std::chrono::milliseconds kShortestBackOff = std::chrono::seconds(10);
inline constexpr std::chrono::milliseconds kLongestBackOff = std::chrono::minutes(5);

inline constexpr RecordKey kLaunchRecordKeys[] = {kBundlePathKey,  kBundleStateKey, kProcessIDKey,
                                                  kStartTimeKey,   kTimeKey,        kFailuresKey,
                                                  kPIDNamespaceKey};

}  // namespace clientcomm
