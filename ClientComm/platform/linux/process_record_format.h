#pragma once

#include <string_view>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/record_key.h"
#include "ClientComm/platform/process_manager.h"

/// The constants of the process record in docs/files.md.
namespace clientcomm {

/// Begins the name; the process ID follows.
inline constexpr std::string_view kProcessRecordPrefix = "process.";

/// Start of the process, in clock ticks after boot.
inline constexpr char kStartTimeKey[] = "StartTime";
/// True in a record that the launcher wrote: the process has not opened to events yet.
inline constexpr char kIsLaunchingKey[] = "IsLaunching";
/// True in the record of a program beside the bundle's executable.
inline constexpr char kIsToolKey[] = "IsTool";
/// The inode of the process's PID namespace; process IDs mean nothing in another one.
inline constexpr char kPIDNamespaceKey[] = "PIDNamespace";
/// The version of the library in the process.
inline constexpr char kLibraryVersionKey[] = "LibraryVersion";

inline constexpr RecordKey kProcessRecordKeys[] = {
    kStartTimeKey, kCFBundleIdentifierKey, kBundlePathKey,    kCFBundleNameKey, kIsLaunchingKey,
    kIsToolKey,    kPIDNamespaceKey,       kLibraryVersionKey};

}  // namespace clientcomm
