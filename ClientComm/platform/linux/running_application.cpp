#include "ClientComm/platform/linux/running_application.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_contents.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/linux/bundle_filter.h"
#include "ClientComm/platform/linux/endpoint_record.h"
#include "ClientComm/platform/linux/executable_link.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/local_file.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_ids.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/bundle_files.h"
#include "ClientComm/platform/posix/removed_name.h"

namespace clientcomm {
namespace {

bool isOfThisUser(pid_t pid) noexcept {
  struct stat status = {};
  return stat(ProcPath::ofProcess(pid).c_str(), &status) == 0 && status.st_uid == geteuid();
}

bool mayRunBundle(const ExecutableLink& link) noexcept {
  return link.isWithheld() || !bundleOfExecutable(link.target()).empty();
}

// A forked child has no record of its own, and it is not the application.
bool isForkedCopy(pid_t pid, const ExecutableLink& link) noexcept {
  const pid_t parent = parentOfProcess(pid);
  return parent > 0 && ExecutableLink::ofProcess(parent).target() == link.target();
}

std::string executablePath(const ExecutableLink& link) {
  std::string path(link.target());
  if (link.isRemoved()) path.resize(path.size() - kRemovedMark.size());
  return path;
}

bool isEndpoint(pid_t pid, const BundleIdentity& identity) {
  return identity.identifier && holdsEndpoint(pid, *identity.identifier);
}

// In a sandbox the path may lead to another bundle, of a private home folder.
bool isAnotherFileHere(const ExecutableLink& link) {
  if (link.isMarkedAsRemoved()) return false;
  const auto here = statusWithoutWaiting(AT_FDCWD, std::string(link.target()).c_str());
  return here && !link.leadsTo(*here);
}

// The process has said nothing of itself in this runtime folder: it is starting, has never opened,
// or is open in another folder.
Presence presenceWithoutRecord(pid_t pid, std::uint64_t startTime, const ExecutableLink& link,
                               const BundleIdentity& identity) {
  // A bundle that was moved away to be removed is one under its former path only.
  std::string path(bundleOfExecutable(link.target()));
  if (!isApplicationPath(path)) path = identity.path;
  if (!isMainExecutable(Bundle(path), executablePath(link))) return Presence::kAbsent;
  if (isAnotherFileHere(link)) return Presence::kAbsent;
  const auto listening =
      identity.identifier ? listeningOf(pid, *identity.identifier) : Listening::kNowhere;
  if (listening == Listening::kElsewhere) return Presence::kUnreachable;
  const bool isStarting = ageByStartTime(startTime) < kLaunchLimit && !isForkedCopy(pid, link);
  const bool isRunning = listening == Listening::kHere || isStarting || isEndpoint(pid, identity);
  return isRunning ? Presence::kRunning : Presence::kAbsent;
}

Presence presenceByProcess(pid_t pid, std::uint64_t startTime, const ExecutableLink& link,
                           const BundleIdentity& identity,
                           const std::optional<ProcessRecord>& record) {
  if (pid == getpid()) return Presence::kRunning;
  if (!record) return presenceWithoutRecord(pid, startTime, link, identity);
  if (record->isTool) return Presence::kAbsent;
  const bool isRunning =
      record->isOpen || ageByStartTime(startTime) < kLaunchLimit || isEndpoint(pid, identity);
  return isRunning ? Presence::kRunning : Presence::kAbsent;
}

// Whether both paths name the same bundle, also where it has been removed or moved away since.
bool leadsTo(const std::string& path, const std::string& other) {
  return isSameBundle(path, other) ||
         (lastPathComponent(path) == lastPathComponent(other) &&
          isSameBundle(splitPath(path).directory, splitPath(other).directory));
}

BundleIdentity identityOf(const ProcessRecord& record) {
  const auto optional = [](const std::string& text) {
    return text.empty() ? OptionalString() : OptionalString(text);
  };
  return {record.bundlePath, optional(record.bundleIdentifier), optional(record.bundleName)};
}

bool isOfAnotherUser(pid_t pid) noexcept {
  struct stat status = {};
  return stat(ProcPath::ofProcess(pid).c_str(), &status) == 0 && status.st_uid != geteuid();
}

// Nothing tells what the process runs, and a second look would not either: the kernel withholds its
// executable, and it has said nothing of itself. Most desktops run some of these all day.
bool isSilent(pid_t pid) {
  return ExecutableLink::ofProcess(pid).isWithheld() && hasNoProcessRecord(pid);
}

/// What a look at all processes has found.
struct Look {
  Presence presence = Presence::kAbsent;
  bool isDoubtful = false;  ///< A system call that failed may have hidden a process.
};

Look lookAtProcesses(const std::string& bundlePath) {
  Look look;
  const BundleFilter filter(bundlePath);
  ProcessIDReader processes;
  for (pid_t pid = processes.next(); pid != 0; pid = processes.next()) {
    if (!filter.mayRun(pid) || isOfAnotherUser(pid) || isSilent(pid)) continue;
    const auto process = bundleProcess(pid);
    const bool isOfBundle = process && isSameBundle(process->identity.path, bundlePath);
    if (isOfBundle && process->presence == Presence::kRunning) return {Presence::kRunning};
    if (isOfBundle && process->presence == Presence::kUnreachable) {
      look.presence = Presence::kUnreachable;
    }
    look.isDoubtful = true;
  }
  if (processes.error() != 0) look.presence = Presence::kUnknown;
  return look;
}

bool isUnseenAt(const std::string& bundlePath, const std::string& identifier) {
  const OptionalString unseen = bundleOfUnseenEndpoint(identifier);
  return unseen && isSameBundle(*unseen, bundlePath);
}

}  // namespace

std::optional<std::uint64_t> startTimeOfBundleProcess(pid_t pid) {
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  if (!mayRunBundle(link) || !isOfThisUser(pid)) return std::nullopt;
  if (link.isWithheld() && !processRecordForPID(pid)) return std::nullopt;
  return processStartTime(pid);
}

std::optional<BundleProcess> bundleProcess(pid_t pid) {
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  if (!mayRunBundle(link) || !isOfThisUser(pid)) return std::nullopt;
  const auto startTime = processStartTime(pid);
  if (!startTime) return std::nullopt;
  const auto record = processRecordOf(pid, startTime);
  const std::string_view bundlePath = bundleOfExecutable(link.target());
  BundleProcess process{*startTime, {}};
  if (bundlePath.empty()) {
    // Not dumpable, for instance: the kernel does not tell what it runs.
    if (!record || record->bundlePath.empty()) return std::nullopt;
    process.identity = identityOf(*record);
  } else {
    auto identity = ownIdentity(pid, link, bundlePath);
    process.identity = identity ? *std::move(identity) : successorIdentity(bundlePath);
    process.identity.path = pathBeforeRemoval(process.identity.path);
    if (record && leadsTo(record->bundlePath, process.identity.path)) {
      process.identity.path = record->bundlePath;
    }
  }
  process.presence = presenceByProcess(pid, *startTime, link, process.identity, record);
  return process;
}

Presence presenceOf(const std::string& bundlePath, const OptionalString& identifier) {
  Look look = lookAtProcesses(bundlePath);
  if (look.presence == Presence::kAbsent && look.isDoubtful) look = lookAtProcesses(bundlePath);
  if (look.presence == Presence::kRunning || look.presence == Presence::kUnknown) {
    return look.presence;
  }
  if (identifier && (isUnseenAt(bundlePath, *identifier) || isUnseenAt(bundlePath, *identifier))) {
    return Presence::kRunning;
  }
  return look.presence;
}

}  // namespace clientcomm
