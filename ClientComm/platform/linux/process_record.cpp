#include "ClientComm/platform/linux/process_record.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/record_file.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"

namespace clientcomm {
namespace {

bool isMissing(int folder, const std::string& name) noexcept {
  struct stat status = {};
  return fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

}  // namespace

std::optional<ProcessRecord> processRecordForPID(pid_t pid) {
  return processRecordOf(pid, processStartTime(pid));
}

std::optional<ProcessRecord> processRecordOf(pid_t pid, std::optional<std::uint64_t> startTime) {
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  if (!folder.isValid()) return std::nullopt;
  auto first = readProcessRecord(folder.get(), processRecordName(pid));
  if (first && first->startTime != startTime) first.reset();
  const std::uint64_t own = ownPIDNamespace();
  if (own == 0 || (first && mayBeOfNamespace(*first, own))) return first;
  auto second = readProcessRecord(folder.get(), processRecordName(pid, own));
  if (second && second->startTime == startTime) return second;
  // Where /proc belongs to another namespace than this process, so do the IDs in it.
  return first;
}

bool hasNoProcessRecord(pid_t pid) {
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  if (!folder.isValid()) return errno == ENOENT;
  const std::uint64_t own = ownPIDNamespace();
  return own != 0 && isMissing(folder.get(), processRecordName(pid)) &&
         isMissing(folder.get(), processRecordName(pid, own));
}

std::optional<ProcessRecord> unseenProcessRecord(const std::string& bundlePath,
                                                 std::optional<std::uint64_t> startTime) {
  const ScopedFd folder = openRuntimeFolder(IfMissing::kFail);
  const std::uint64_t own = ownPIDNamespace();
  if (!folder.isValid() || own == 0) return std::nullopt;
  std::optional<ProcessRecord> found;
  for (const std::string& name :
       contentsOfDirectoryAtPath(ProcPath::ofDescriptor(folder.get()).c_str())) {
    if (parseRuntimeFileName(name).kind != RuntimeFileKind::kProcessRecord) continue;
    auto record = readProcessRecord(folder.get(), name);
    if (!record || !record->isOpen || record->bundlePath != bundlePath) continue;
    if (mayBeOfNamespace(*record, own)) continue;
    if (startTime && record->startTime != *startTime) continue;
    if (!found || found->startTime < record->startTime) found = std::move(record);
  }
  return found;
}

std::optional<ProcessRecord> readProcessRecord(int folder, const std::string& name) {
  const auto content = readRecordFile(folder, name);
  return content ? processRecordIn(*content) : std::nullopt;
}

std::optional<ProcessRecord> processRecordFromBytes(std::string_view bytes) {
  const auto list = propertyListFromBytes(bytes);
  const auto* const content = list ? list->dictionary() : nullptr;
  return content != nullptr ? processRecordIn(*content) : std::nullopt;
}

std::optional<ProcessRecord> processRecordIn(const PropertyListDictionary& content) {
  const auto startTime = unsignedFor(content, kStartTimeKey);
  if (!startTime) return std::nullopt;
  ProcessRecord record{*startTime, stringFor(content, kCFBundleIdentifierKey).value_or(""),
                       stringFor(content, kBundlePathKey).value_or(""),
                       stringFor(content, kCFBundleNameKey).value_or("")};
  // Launchers of older versions leave the path out, and nothing else tells their records apart.
  record.isOpen = !record.bundlePath.empty() && !flagFor(content, kIsLaunchingKey);
  record.isTool = flagFor(content, kIsToolKey);
  record.pidNamespace = unsignedFor(content, kPIDNamespaceKey).value_or(0);
  return record;
}

bool mayBeOfNamespace(const ProcessRecord& record, std::uint64_t pidNamespace) noexcept {
  return record.pidNamespace == 0 || pidNamespace == 0 || record.pidNamespace == pidNamespace;
}

}  // namespace clientcomm
