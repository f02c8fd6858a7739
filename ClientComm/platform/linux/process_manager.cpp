#include "ClientComm/platform/process_manager.h"

#include <sys/types.h>

#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/bundle_filter.h"
#include "ClientComm/platform/linux/bundle_identities.h"
#include "ClientComm/platform/linux/endpoint_record.h"
#include "ClientComm/platform/linux/known_peers.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/running_application.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"

namespace clientcomm {
namespace {

std::uint32_t highLong(std::uint64_t startTime) noexcept {
  return static_cast<std::uint32_t>(startTime) & ~kPeerBit;
}

}  // namespace

OSErr GetProcessForPID(std::int32_t pid, ProcessSerialNumber& psn) {
  if (pid <= 0) return procNotFound;
  const auto startTime = startTimeOfBundleProcess(pid);
  if (!startTime) return procNotFound;
  psn = {highLong(*startTime), static_cast<std::uint32_t>(pid)};
  return noErr;
}

std::optional<PropertyListDictionary> ProcessInformationCopyDictionary(
    const ProcessSerialNumber& psn, std::uint32_t infoToReturn) {
  if (infoToReturn != kProcessDictionaryIncludeAllInformationMask) return std::nullopt;
  if ((psn.highLongOfPSN & kPeerBit) != 0) return dictionaryOfPeer(psn);
  auto process = bundleProcess(static_cast<pid_t>(psn.lowLongOfPSN));
  if (!process || highLong(process->startTime) != psn.highLongOfPSN) return std::nullopt;
  if (process->presence != Presence::kRunning) process->identity.identifier.reset();
  return dictionaryOf(process->identity);
}

OptionalString bundleIdentifierOfProcess(const ProcessSerialNumber& psn) {
  if ((psn.highLongOfPSN & kPeerBit) != 0) return identifierOfPeer(psn);
  const auto info =
      ProcessInformationCopyDictionary(psn, kProcessDictionaryIncludeAllInformationMask);
  return info ? stringFor(*info, kCFBundleIdentifierKey) : std::nullopt;
}

std::function<bool(std::int32_t pid)> mayRunBundleAt(const std::string& bundlePath) {
  return [filter = BundleFilter(bundlePath)](std::int32_t pid) { return filter.mayRun(pid); };
}

std::vector<std::int32_t> openApplications() {
  std::vector<std::int32_t> recorded;
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  if (!folder.isValid()) return recorded;
  for (const std::string& name :
       contentsOfDirectoryAtPath(ProcPath::ofDescriptor(folder.get()).c_str())) {
    const RuntimeFileName parsed = parseRuntimeFileName(name);
    if (parsed.kind == RuntimeFileKind::kProcessRecord) recorded.push_back(parsed.pid);
  }
  return recorded;
}

bool isRunningUnseen(const std::string& identifier, const std::string& bundlePath) {
  return bundleOfUnseenEndpoint(identifier) == bundlePath;
}

}  // namespace clientcomm
