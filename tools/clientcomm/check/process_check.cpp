#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/executable_link.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/process_ids.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/linux/running_application.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/bundle_files.h"
#include "ClientComm/platform/posix/preferences_folder.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/user_defaults.h"
#include "tools/clientcomm/check/examination.h"

// What runs, and what the helper and earlier launches have left.

namespace clientcomm::tool {
namespace {

std::string ofProcess(pid_t pid) { return "Process " + std::to_string(pid); }

// Whether the process runs from a bundle that was removed or replaced.
bool runsFromRemovedBundle(pid_t pid) {
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  const std::string bundle(bundleOfExecutable(link.target()));
  return link.isRemoved() || pathBeforeRemoval(bundle) != bundle;
}

void addUnreachable(pid_t pid, const std::string& path, Findings& findings) {
  findings.add(Cause::kHelperOutOfReach, path,
               ofProcess(pid) +
                   " runs the helper, but takes calls in another runtime folder than " +
                   runtimeFolderPath() + ".",
               "Run host and helper in the same session; the page on running says more.");
}

void noteProcess(pid_t pid, const BundleProcess& process, Examination& examination) {
  const std::string& path = process.identity.path;
  const bool isInstalled = examination.installed && path == *examination.installed;
  examination.processes.push_back({pid, path, process.presence == Presence::kRunning});
  if (process.presence == Presence::kUnreachable) {
    addUnreachable(pid, path, examination.findings);
  } else if (process.presence != Presence::kRunning) {
    return;
  } else if (runsFromRemovedBundle(pid)) {
    examination.findings.add(Cause::kOldHelperRuns, path,
                             ofProcess(pid) +
                                 " runs a helper that has been replaced or removed, and has not "
                                 "taken the exit command.",
                             "Start the host, which repeats the command, or end the process.");
  } else if (!isInstalled) {
    examination.findings.add(
        Cause::kEndpointTaken, path,
        ofProcess(pid) +
            " takes the calls for the helper's identifier, and runs from another "
            "place than the host's install folder.",
        "End it; let all products install the helper in one folder.");
  }
}

bool isOfHelper(const BundleProcess& process, const Examination& examination) {
  if (process.identity.path == examination.host.bundlePath()) return false;
  if (examination.installed && process.identity.path == *examination.installed) return true;
  return examination.helperIdentifier &&
         process.identity.identifier == examination.helperIdentifier;
}

void lookAtProcesses(Examination& examination) {
  ProcessIDReader reader;
  for (pid_t pid = reader.next(); pid != 0; pid = reader.next()) {
    const auto process = bundleProcess(pid);
    if (!process || !isOfHelper(*process, examination)) continue;
    const auto record = processRecordForPID(pid);
    if (record && record->isTool) continue;
    noteProcess(pid, *process, examination);
  }
  if (reader.error() == 0) return;
  examination.findings.add(Cause::kProcessesUnreadable, "/proc",
                           std::string("The processes cannot be read: ") +
                               std::strerror(reader.error()) +
                               ". A host launches nothing where it cannot.",
                           "Mount /proc.");
}

bool takesCalls(const Examination& examination) {
  return std::any_of(examination.processes.begin(), examination.processes.end(),
                     [](const HelperProcess& process) { return process.takesCalls; });
}

// How the last launches went, where they have not led to a helper that takes calls.
void checkLaunches(Examination& examination) {
  if (!examination.isInstalled || takesCalls(examination)) return;
  const std::string& path = *examination.installed;
  const ScopedFd folder(
      open(runtimeFolderPath().c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const Bundle helper(path);
  const OptionalString executable = helper.executablePath();
  if (!folder.isValid() || !executable) return;
  const auto last = lastLaunchOf(folder.get(), path);
  switch (launchAdvice(last, stateOfBundle(path, *executable))) {
    case LaunchAdvice::kIsHung:
      examination.findings.add(Cause::kHelperHangs, path,
                               ofProcess(last->pid) +
                                   " was launched and lives, but has not opened to calls; no other "
                                   "is launched.",
                               "See what it waits for, or end it.");
      break;
    case LaunchAdvice::kBackOff:
      examination.findings.add(
          Cause::kLaunchPutOff, path,
          "The helper has ended " + std::to_string(last->failures + 1) +
              " times in a row before it opened to calls; its launch is put off.",
          "Run its executable in a terminal to see why it ends.");
      break;
    case LaunchAdvice::kLaunch:
    case LaunchAdvice::kIsStarting:
      break;
  }
}

void checkPreferences(Examination& examination) {
  const std::string file = *examination.helperIdentifier + ".plist";
  const std::string folder = preferencesFolder();
  const auto settings = dictionaryWithContentsOfFile(stringByAppendingPathComponent(folder, file));
  if (settings && flagFor(*settings, TQHPServerClosed)) {
    examination.findings.add(Cause::kServerClosed, stringByAppendingPathComponent(folder, file),
                             "The helper has set \"TQHPServerClosed\": hosts send and launch "
                             "nothing until it is removed.",
                             "Let the helper open its server, or remove the key.");
  }
  const OptionalString host = examination.host.bundleIdentifier();
  for (const std::string& entry : contentsOfDirectoryAtPath(folder)) {
    const bool isOwn = entry.starts_with(file + ".corrupt-") ||
                       (host && entry.starts_with(*host + ".plist.corrupt-"));
    if (!isOwn) continue;
    examination.findings.add(Cause::kDefaultsDamaged, stringByAppendingPathComponent(folder, entry),
                             "Settings were unreadable and are kept aside here.",
                             "Take over what is still wanted, and remove the file.");
  }
}

}  // namespace

void checkProcesses(Examination& examination) {
  if (!examination.helperIdentifier && !examination.installed) return;
  lookAtProcesses(examination);
  checkLaunches(examination);
  if (examination.helperIdentifier) checkPreferences(examination);
}

}  // namespace clientcomm::tool
