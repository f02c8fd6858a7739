#include "tools/clientcomm/check/finding.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace clientcomm::tool {
namespace {

using enum Cause;
using enum Severity;

// In the order of the enumeration.
constexpr CauseEntry kCauses[] = {
    {kHostWithoutBundle, "host-without-bundle", kError},
    {kPropertyListUnreadable, "property-list-unreadable", kError},
    {kPropertyListMalformed, "property-list-malformed", kError},
    {kInfoFileRefused, "info-file-refused", kError},
    {kOwnIdentifierMissing, "own-identifier-missing", kError},
    {kIdentifierTooLong, "identifier-too-long", kError},
    {kInfoKeyMissing, "info-key-missing", kError},
    {kInfoKeyMisspelt, "info-key-misspelt", kError},
    {kInfoKeyNotText, "info-key-not-text", kError},
    {kSecondKeyIgnored, "second-key-ignored", kNote},
    {kHostNotWritable, "host-not-writable", kNote},
    {kRecoveryCopyLeft, "recovery-copy-left", kWarning},
    {kHelperNotEmbedded, "helper-not-embedded", kError},
    {kHelperIdentifierDiffers, "helper-identifier-differs", kError},
    {kHelperIdentifierOfHost, "helper-identifier-of-host", kError},
    {kHelperWithoutIdentifier, "helper-without-identifier", kError},
    {kHelperWithoutVersion, "helper-without-version", kWarning},
    {kExecutableMissing, "executable-missing", kError},
    {kExecutableBitMissing, "executable-bit-missing", kError},
    {kExecutableIsScript, "executable-is-script", kError},
    {kExecutableNotRun, "executable-not-run", kError},
    {kArchitectureUnsupported, "architecture-unsupported", kError},
    {kLoaderMissing, "loader-missing", kError},
    {kLibraryMissing, "library-missing", kError},
    {kMountedNoexec, "mounted-noexec", kError},
    {kInstallFolderRelative, "install-folder-relative", kError},
    {kInstallFolderNotOwned, "install-folder-not-owned", kError},
    {kInstallFolderNotMade, "install-folder-not-made", kError},
    {kInstallFolderNotWritable, "install-folder-not-writable", kError},
    {kInstallFolderFull, "install-folder-full", kError},
    {kMountedReadOnly, "mounted-read-only", kError},
    {kInstallFolderLocked, "install-folder-locked", kWarning},
    {kInstalledHelperNewer, "installed-helper-newer", kNote},
    {kRemovalUnfinished, "removal-unfinished", kWarning},
    {kCopyUnfinished, "copy-unfinished", kWarning},
    {kEnvironmentIgnored, "environment-ignored", kWarning},
    {kRuntimeDirectoryUnset, "runtime-directory-unset", kNote},
    {kRuntimeDirectoryRefused, "runtime-directory-refused", kWarning},
    {kRuntimeFolderUnusable, "runtime-folder-unusable", kError},
    {kRuntimeFolderOpen, "runtime-folder-open", kNote},
    {kLaunchLocked, "launch-locked", kWarning},
    {kServerClosed, "server-closed", kWarning},
    {kDefaultsDamaged, "defaults-damaged", kNote},
    {kHelperOutOfReach, "helper-out-of-reach", kError},
    {kHelperHangs, "helper-hangs", kError},
    {kLaunchPutOff, "launch-put-off", kError},
    {kEndpointTaken, "endpoint-taken", kWarning},
    {kOldHelperRuns, "old-helper-runs", kWarning},
    {kProcessesUnreadable, "processes-unreadable", kWarning},
};

constexpr bool isInOrder() {
  for (std::size_t i = 0; i < std::size(kCauses); ++i) {
    if (static_cast<std::size_t>(kCauses[i].cause) != i) return false;
  }
  return static_cast<std::size_t>(kProcessesUnreadable) + 1 == std::size(kCauses);
}
static_assert(isInOrder());

const CauseEntry& entryOf(Cause cause) noexcept { return kCauses[static_cast<std::size_t>(cause)]; }

}  // namespace

const char* nameOf(Severity severity) noexcept {
  if (severity == kError) return "error";
  return severity == kWarning ? "warning" : "note";
}

std::span<const CauseEntry> causes() noexcept { return kCauses; }

const char* nameOf(Cause cause) noexcept { return entryOf(cause).name; }

void Findings::add(Cause cause, std::string path, std::string sentence, std::string remedy) {
  add(cause, entryOf(cause).severity, std::move(path), std::move(sentence), std::move(remedy));
}

void Findings::add(Cause cause, Severity severity, std::string path, std::string sentence,
                   std::string remedy) {
  all_.push_back({cause, severity, std::move(path), std::move(sentence), std::move(remedy)});
}

std::size_t Findings::count(Severity severity) const {
  return static_cast<std::size_t>(
      std::count_if(all_.begin(), all_.end(),
                    [severity](const Finding& finding) { return finding.severity == severity; }));
}

}  // namespace clientcomm::tool
