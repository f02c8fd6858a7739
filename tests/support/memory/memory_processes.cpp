#include "tests/support/memory/memory_processes.h"

#include <algorithm>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/path.h"

namespace support {
namespace {

constexpr std::int32_t kFirstStartedProcess = 1'000'000'000;

}  // namespace

MemoryProcess* MemoryProcesses::find(std::int32_t pid) {
  const auto found = all_.find(pid);
  return found == all_.end() ? nullptr : &found->second;
}

MemoryProcess* MemoryProcesses::receiverFor(std::string_view identifier) {
  const auto found = std::find_if(all_.begin(), all_.end(), [&](const auto& entry) {
    return entry.second.receiver && entry.second.identifier == identifier;
  });
  return found == all_.end() ? nullptr : &found->second;
}

std::int32_t MemoryProcesses::start(const std::string& bundlePath) {
  const std::int32_t pid =
      std::max(kFirstStartedProcess, all_.empty() ? 0 : all_.rbegin()->first) + 1;
  start(bundlePath, pid);
  return pid;
}

void MemoryProcesses::start(const std::string& bundlePath, std::int32_t pid) {
  const clientcomm::Bundle bundle(bundlePath);
  all_.insert_or_assign(
      pid, MemoryProcess{pid, ++lastNumber_, bundlePath, bundle.executablePath().value_or(""),
                         bundle.bundleIdentifier(), bundle.infoString(clientcomm::kCFBundleNameKey),
                         nullptr, false});
}

void MemoryProcesses::follow(const std::string& from, const std::string& to) {
  for (auto& [pid, process] : all_) {
    if (!process.executable.starts_with(from + "/")) continue;
    process.executable = to + process.executable.substr(from.size());
  }
}

}  // namespace support
