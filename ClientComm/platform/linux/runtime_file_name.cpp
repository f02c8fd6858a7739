#include "ClientComm/platform/linux/runtime_file_name.h"

#include <unistd.h>

#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/decimal_number.h"
#include "ClientComm/platform/linux/endpoint_record_format.h"
#include "ClientComm/platform/linux/launch_record_format.h"
#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"

namespace clientcomm {
namespace {

bool isDigest(std::string_view text) noexcept {
  return text.size() == kFileNameLength &&
         text.find_first_not_of(kFileNameDigits) == std::string_view::npos;
}

bool isPrefixedDigest(std::string_view name, std::string_view prefix) noexcept {
  return name.starts_with(prefix) && isDigest(name.substr(prefix.size()));
}

/// Two parts of a name with a dot between them; the second is empty where there is no dot.
struct Parts {
  std::string_view first;
  std::string_view second;
  bool hasDot;
};

Parts splitAt(std::string_view name, std::size_t dot) noexcept {
  if (dot == std::string_view::npos) return {name, {}, false};
  return {name.substr(0, dot), name.substr(dot + 1), true};
}

RuntimeFileName parseProcessRecord(std::string_view name) noexcept {
  if (!name.starts_with(kProcessRecordPrefix)) return {};
  name.remove_prefix(kProcessRecordPrefix.size());
  const Parts parts = splitAt(name, name.find('.'));
  const auto pid = decimalNumber<pid_t>(parts.first);
  const auto pidNamespace = decimalNumber<std::uint64_t>(parts.second);
  if (pid == 0 || (parts.hasDot && pidNamespace == 0)) return {};
  return {RuntimeFileKind::kProcessRecord, pid, pidNamespace};
}

bool isRecord(std::string_view name) noexcept {
  return parseProcessRecord(name).kind == RuntimeFileKind::kProcessRecord ||
         isPrefixedDigest(name, kLaunchRecordPrefix) ||
         isPrefixedDigest(name, kEndpointRecordPrefix);
}

// @param name without the suffix of drafts.
RuntimeFileName parseDraft(std::string_view name) noexcept {
  const Parts parts = splitAt(name, name.rfind('.'));
  const auto pid = decimalNumber<pid_t>(parts.second);
  if (pid != 0 && isRecord(parts.first)) return {RuntimeFileKind::kDraft, pid, 0};
  // Earlier versions: the process of a process record writes the draft itself.
  if (isRecord(name)) return {RuntimeFileKind::kDraft, parseProcessRecord(name).pid, 0};
  return {};
}

RuntimeFileName parseSocket(std::string_view name) noexcept {
  const auto parts = partsOfBoundName(name);
  if (!parts) return {};
  return {RuntimeFileKind::kSocket, parts->pid, 0};
}

}  // namespace

std::string processRecordName(pid_t pid) {
  return std::string(kProcessRecordPrefix) + std::to_string(pid);
}

std::string processRecordName(pid_t pid, std::uint64_t pidNamespace) {
  return processRecordName(pid) + "." + std::to_string(pidNamespace);
}

std::string launchRecordName(const std::string& bundlePath) {
  return std::string(kLaunchRecordPrefix) + fileNameForIdentifier(bundlePath);
}

std::string endpointRecordName(std::string_view socketName) {
  return std::string(kEndpointRecordPrefix).append(socketName);
}

std::string draftName(const std::string& name) {
  return name + "." + std::to_string(getpid()) + std::string(kDraftSuffix);
}

RuntimeFileName parseRuntimeFileName(std::string_view name) noexcept {
  if (name.ends_with(kDraftSuffix)) {
    name.remove_suffix(kDraftSuffix.size());
    return parseDraft(name);
  }
  const RuntimeFileName record = parseProcessRecord(name);
  return record.kind == RuntimeFileKind::kProcessRecord ? record : parseSocket(name);
}

}  // namespace clientcomm
