#pragma once

/// Keys of the user defaults and of the switches in docs/files.md. Those that hosts use themselves
/// are in TQHPHelperCommunicate.h.
namespace clientcomm {

// In the host's user defaults. The first is also the key of its Info dictionary.
inline constexpr char kPIDKey[] = "PID";
inline constexpr char kVersionKey[] = "Version";
inline constexpr char kExecutableFileKey[] = "ExecutableFile";

// In the property list and the string table of the host's bundle.
inline constexpr char kTipsEnableKey[] = "TipsEnable";
inline constexpr char kEnableADKey[] = "EnableAD";

}  // namespace clientcomm
