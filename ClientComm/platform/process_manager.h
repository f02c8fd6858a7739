#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/export.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/types.h"

/// What is known of running applications: from process ID to serial number to bundle.
namespace clientcomm {

/// Names a running process for as long as it runs; eight bytes, as they stand in an event.
struct ProcessSerialNumber {
  std::uint32_t highLongOfPSN = 0;
  std::uint32_t lowLongOfPSN = 0;
  bool operator==(const ProcessSerialNumber&) const = default;
};
static_assert(sizeof(ProcessSerialNumber) == 8);

/// Asks for everything that is known of a process. The first platform had further masks.
inline constexpr std::uint32_t kProcessDictionaryIncludeAllInformationMask = 0xFFFFFFFF;

/// The serial number of the process `pid`.
/// @return noErr, or procNotFound when there is no such process, it is another user's, or it runs
///         no application bundle.
OSErr GetProcessForPID(std::int32_t pid, ProcessSerialNumber& psn);

/// What is known of a process: `kCFBundleIdentifierKey`, `kBundlePathKey`, `kCFBundleNameKey`, each
/// a string and each absent when unknown. Holds for a process whose bundle was removed meanwhile:
/// it keeps the identifier and the path that it was started with. The path is the one that the
/// application was launched by. A process that does not run its bundle's executable, or that has
/// taken no events within 5 s of its start, is no running application and has no identifier.
/// @return nothing when the process is unknown.
std::optional<PropertyListDictionary> ProcessInformationCopyDictionary(
    const ProcessSerialNumber& psn, std::uint32_t infoToReturn);

/// The `kCFBundleIdentifierKey` of what is known of a process, without the rest; nil when unknown.
OptionalString bundleIdentifierOfProcess(const ProcessSerialNumber& psn);

/// Tells at the cost of a look at what a process runs whether it may be the application of the
/// bundle at `bundlePath`: false only where `ProcessInformationCopyDictionary` does not give that
/// path for it.
std::function<bool(std::int32_t pid)> mayRunBundleAt(const std::string& bundlePath);

/// The processes that have said that they take events, as far as that is known without a look at
/// each. Some may have ended since.
std::vector<std::int32_t> openApplications();

/// Whether the application with exactly this identifier and bundle path takes events, and its
/// process cannot be seen from here: it runs in another process-ID namespace.
bool isRunningUnseen(const std::string& identifier, const std::string& bundlePath);

}  // namespace clientcomm
