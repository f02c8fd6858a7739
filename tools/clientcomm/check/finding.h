#pragma once

#include <span>
#include <string>
#include <vector>

namespace clientcomm::tool {

enum class Severity {
  kNote,     ///< Worth knowing; nothing fails by it.
  kWarning,  ///< Something may fail by it, or is out of order now.
  kError,    ///< The helper does not start, or calls do not arrive.
};

const char* nameOf(Severity severity) noexcept;

/// What `check` can find. Where the library reports the same cause to a diagnostic handler, both
/// have the same name.
enum class Cause {
  // The host's Info.plist.
  kHostWithoutBundle,
  kPropertyListUnreadable,
  kPropertyListMalformed,
  kInfoFileRefused,
  kOwnIdentifierMissing,
  kIdentifierTooLong,
  kInfoKeyMissing,
  kInfoKeyMisspelt,
  kInfoKeyNotText,
  kSecondKeyIgnored,
  kHostNotWritable,
  kRecoveryCopyLeft,
  // The helper in the host's bundle.
  kHelperNotEmbedded,
  kHelperIdentifierDiffers,
  kHelperIdentifierOfHost,
  kHelperWithoutIdentifier,
  kHelperWithoutVersion,
  // Programs.
  kExecutableMissing,
  kExecutableBitMissing,
  kExecutableIsScript,
  kExecutableNotRun,
  kArchitectureUnsupported,
  kLoaderMissing,
  kLibraryMissing,
  kMountedNoexec,
  // The install folder.
  kInstallFolderRelative,
  kInstallFolderNotOwned,
  kInstallFolderNotMade,
  kInstallFolderNotWritable,
  kInstallFolderFull,
  kMountedReadOnly,
  kInstallFolderLocked,
  kInstalledHelperNewer,
  kRemovalUnfinished,
  kCopyUnfinished,
  // The runtime folder and the environment.
  kEnvironmentIgnored,
  kRuntimeDirectoryUnset,
  kRuntimeDirectoryRefused,
  kRuntimeFolderUnusable,
  kRuntimeFolderOpen,
  kLaunchLocked,
  // What runs.
  kServerClosed,
  kDefaultsDamaged,
  kHelperOutOfReach,
  kHelperHangs,
  kLaunchPutOff,
  kEndpointTaken,
  kOldHelperRuns,
  kProcessesUnreadable,
};

/// The name of a cause, which stays the same, and how bad it is unless a finding says otherwise.
struct CauseEntry {
  Cause cause;
  const char* name;
  Severity severity;
};

/// All causes.
std::span<const CauseEntry> causes() noexcept;

struct Finding {
  Cause cause;
  Severity severity;
  std::string path;  ///< Of the file or folder; empty where it is about none.
  std::string sentence;
  std::string remedy;  ///< What to do.
};

const char* nameOf(Cause cause) noexcept;

/// What was found, in the order of the checks.
class Findings {
 public:
  /// With the severity of the cause.
  void add(Cause cause, std::string path, std::string sentence, std::string remedy);
  void add(Cause cause, Severity severity, std::string path, std::string sentence,
           std::string remedy);

  const std::vector<Finding>& all() const { return all_; }
  std::size_t count(Severity severity) const;

 private:
  std::vector<Finding> all_;
};

}  // namespace clientcomm::tool
