#include <sys/types.h>

#include <string_view>

#include "platform/linux/bundle_identities.h"
#include "platform/linux/check_in.h"
#include "platform/linux/executable_link.h"
#include "platform/linux/peer_identity.h"
#include "platform/linux/process_text.h"
#include "platform/process_manager.h"

namespace platform {
namespace {

std::uint32_t highLong(std::uint64_t startTime) noexcept {
  return static_cast<std::uint32_t>(startTime) & ~kPeerBit;
}

}  // namespace

OSErr GetProcessForPID(std::int32_t pid, ProcessSerialNumber& psn) {
  if (pid <= 0) return procNotFound;
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  if (bundleOfExecutable(link.target()).empty()) return procNotFound;
  const auto startTime = processStartTime(pid);
  if (!startTime) return procNotFound;
  psn = {highLong(*startTime), static_cast<std::uint32_t>(pid)};
  return noErr;
}

std::optional<PropertyListDictionary> ProcessInformationCopyDictionary(
    const ProcessSerialNumber& psn, std::uint32_t infoToReturn) {
  if (infoToReturn != kProcessDictionaryIncludeAllInformationMask) return std::nullopt;
  if ((psn.highLongOfPSN & kPeerBit) != 0) return dictionaryOfPeer(psn);
  const auto pid = static_cast<pid_t>(psn.lowLongOfPSN);
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  const std::string_view bundlePath = bundleOfExecutable(link.target());
  if (bundlePath.empty()) return std::nullopt;
  const auto startTime = processStartTime(pid);
  if (!startTime || highLong(*startTime) != psn.highLongOfPSN) return std::nullopt;
  const auto identity = ownIdentity(pid, link, bundlePath);
  return dictionaryOf(identity ? *identity : successorIdentity(bundlePath));
}

OptionalString bundleIdentifierOfProcess(const ProcessSerialNumber& psn) {
  if ((psn.highLongOfPSN & kPeerBit) != 0) return identifierOfPeer(psn);
  const auto info =
      ProcessInformationCopyDictionary(psn, kProcessDictionaryIncludeAllInformationMask);
  if (!info) return std::nullopt;
  const auto identifier = info->find(kCFBundleIdentifierKey);
  return identifier == info->end() ? std::nullopt : identifier->second.stringValue();
}

}  // namespace platform
