#include "ClientComm/platform/process_manager.h"

#include <algorithm>

#include "ClientComm/platform/dictionary.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

const support::MemoryProcess* processOf(const ProcessSerialNumber& psn) {
  const auto* const process =
      support::MemorySystem::current().processes.find(static_cast<std::int32_t>(psn.lowLongOfPSN));
  return process != nullptr && process->number == psn.highLongOfPSN ? process : nullptr;
}

}  // namespace

OSErr GetProcessForPID(std::int32_t pid, ProcessSerialNumber& psn) {
  const auto* const process = support::MemorySystem::current().processes.find(pid);
  if (process == nullptr) return procNotFound;
  psn = {process->number, static_cast<std::uint32_t>(pid)};
  return noErr;
}

std::optional<PropertyListDictionary> ProcessInformationCopyDictionary(
    const ProcessSerialNumber& psn, std::uint32_t infoToReturn) {
  const auto* const process = processOf(psn);
  if (infoToReturn != kProcessDictionaryIncludeAllInformationMask || process == nullptr) {
    return std::nullopt;
  }
  PropertyListDictionary info{{kBundlePathKey, process->bundlePath}};
  if (process->identifier) info.emplace(kCFBundleIdentifierKey, *process->identifier);
  if (process->name) info.emplace(kCFBundleNameKey, *process->name);
  return info;
}

OptionalString bundleIdentifierOfProcess(const ProcessSerialNumber& psn) {
  const auto* const process = processOf(psn);
  return process == nullptr ? std::nullopt : process->identifier;
}

std::function<bool(std::int32_t pid)> mayRunBundleAt(const std::string& bundlePath) {
  return [bundlePath](std::int32_t pid) {
    const auto* const process = support::MemorySystem::current().processes.find(pid);
    return process != nullptr && process->bundlePath == bundlePath;
  };
}

std::vector<std::int32_t> openApplications() {
  std::vector<std::int32_t> pids;
  for (const auto& [pid, process] : support::MemorySystem::current().processes.all()) {
    if (process.identifier) pids.push_back(pid);
  }
  return pids;
}

// There are no namespaces.
bool isRunningUnseen(const std::string& /*identifier*/, const std::string& /*bundlePath*/) {
  return false;
}

}  // namespace clientcomm
