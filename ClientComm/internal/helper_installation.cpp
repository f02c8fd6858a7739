#include "ClientComm/internal/helper_installation.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/internal/guard.h"
#include "ClientComm/internal/missing_key.h"
#include "ClientComm/internal/version_order.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/clock.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/removal_format.h"
#include "ClientComm/platform/removed_bundle.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/status.h"
#include "ClientComm/platform/workspace.h"

namespace clientcomm {
namespace {

constexpr const char kHelperAppNameFallback[] = "Helper App name";
constexpr const char kHelperInstallPathFallback[] = "Helper location path";

// How long a process may hold the install directory before it counts as stuck, unless it is
// installing.
constexpr std::chrono::milliseconds kLockLimit{100};

// How long an old helper that is still starting may take for the exit command before a later
// restart step repeats it.
constexpr std::chrono::milliseconds kExitCommandLimit{500};
constexpr std::chrono::milliseconds kExitCommandPause{10};

/// Where the host wants its helper, by its Info dictionary; nil where it does not say.
struct HelperLocation {
  OptionalString bundleID;
  OptionalString name;
  OptionalString directory;
};

constexpr DiagnosticCause kLeftover = DiagnosticCause::kLeftoverNotRemoved;

OptionalString expandedPath(const OptionalString& path) {
  return path ? OptionalString(stringByExpandingTildeInPath(*path)) : std::nullopt;
}

HelperLocation helperLocation() {
  const Bundle& host = Bundle::mainBundle();
  HelperLocation location{host.infoString(kHelperBundleId), host.infoString(kHelperAppName),
                          expandedPath(host.infoString(kHelperDefaultInstallPath))};
  if (!location.name) location.name = host.infoString(kHelperAppNameFallback);
  if (!location.directory) {
    location.directory = expandedPath(host.infoString(kHelperInstallPathFallback));
  }
  return location;
}

void reportMissingKeys(const HelperLocation& location) {
  if (!location.name) reportMissingKey(kHelperAppName, kHelperAppNameFallback);
  if (!location.directory) reportMissingKey(kHelperDefaultInstallPath, kHelperInstallPathFallback);
  if (!location.bundleID) reportMissingKey(kHelperBundleId);
}

// A folder that could not be made has been reported.
void reportNotHeld(const Status& lock) {
  if (lock.code() == ENOENT) return;
  lock.report(lock.code() == ETIMEDOUT ? DiagnosticCause::kInstallFolderLocked
                                       : DiagnosticCause::kInstallFolderNotMade);
}

bool readProcesses(const std::string& place, std::vector<std::int32_t>& processes) {
  return processesRunningBelow(place, processes).report(DiagnosticCause::kOldProcessesUnknown);
}

// Whether no process runs from the old copy at `place`. A helper that was not found may run all the
// same: its look-up reads several files, each of which can fail.
bool runsNothing(const std::string& place) {
  std::vector<std::int32_t> processes;
  return readProcesses(place, processes) && processes.empty();
}

// A missing version reads as an empty one.
std::string versionOfBundle(const std::string& path) {
  OptionalString version = Bundle(path).infoString(kCFBundleVersionKey);
  if (!version) report(DiagnosticCause::kHelperWithoutVersion, path);
  return std::move(version).value_or("");
}

}  // namespace

struct HelperInstallation::Target {
  OptionalString bundleID;
  std::string resource;   ///< The helper in the host's bundle.
  std::string installed;  ///< Where it is installed.
};

void InstallationWork::run() noexcept {
  for (const auto& step : steps) guarded(step);
  lock.reset();
}

void HelperInstallation::extract() {
  if (auto work = prepare()) work->run();
}

std::optional<InstallationWork> HelperInstallation::prepare() {
  isPending_ = false;
  const HelperLocation location = helperLocation();
  reportMissingKeys(location);
  if (!location.name || !location.directory) return std::nullopt;
  // Not for another user: a helper that root installs is one that its owner cannot replace.
  if (!mayCreateItemAtPath(*location.directory)) {
    report(DiagnosticCause::kInstallFolderNotOwned, *location.directory);
    return std::nullopt;
  }
  if (!fileExistsAtPath(*location.directory)) {
    // Where it cannot be made, it cannot be locked either.
    makeDirectoryAtPath(*location.directory).report(DiagnosticCause::kInstallFolderNotMade);
  }
  const OptionalString resource =
      Bundle::mainBundle().pathForResource(*location.name, kApplicationExtension);
  if (!resource) {
    report(DiagnosticCause::kHelperNotEmbedded, *location.name, Bundle::mainBundle().bundlePath());
    return std::nullopt;
  }
  const Target target{
      location.bundleID, *resource,
      stringByAppendingPathComponent(*location.directory, lastPathComponent(*resource))};
  // Hosts that start at the same moment take turns; each judges what the one before it left.
  auto lock = std::make_unique<DirectoryLock>(*location.directory, waits_.atMost(kLockLimit));
  // While the copy is missing, the holder is installing it.
  if (!lock->isHeld() && !fileExistsAtPath(target.installed)) {
    lock = std::make_unique<DirectoryLock>(*location.directory, waits_.remaining());
  }
  isPending_ = !lock->isHeld();
  if (!lock->isHeld()) {
    reportNotHeld(lock->status());
    return std::nullopt;
  }
  InstallationWork work{std::move(lock), {}};
  addSteps(target, work.steps);
  return work;
}

void HelperInstallation::addSteps(const Target& target, Steps& steps) {
  // What stays takes up space and hinders nothing.
  steps.push_back([path = target.installed] { removeUnfinishedCopies(path).report(kLeftover); });
  settleEarlierRemovals(target, steps);
  settleMark(target);
  if (!fileExistsAtPath(target.installed)) {
    addCopy(target, steps);
  } else {
    refresh(target, steps);
  }
}

void HelperInstallation::refresh(const Target& target, Steps& steps) {
  const std::string own = versionOfBundle(target.resource);
  const std::string installed = versionOfBundle(target.installed);
  const int order = compareVersionStrings(own, installed);
  if (order == 1) replace(target, steps);
  if (order == -1) report(DiagnosticCause::kInstalledHelperNewer, target.installed, installed);
}

void HelperInstallation::addCopy(const Target& target, Steps& steps) {
  // `launch` finds the copy missing and tries again.
  steps.push_back([from = target.resource, to = target.installed] {
    copyPath(from, to).report(DiagnosticCause::kHelperNotCopied);
  });
}

void HelperInstallation::addRemoval(const std::string& place, Steps& steps) {
  // The next host finds the place again.
  steps.push_back([place] { removeItemAtPath(place).report(kLeftover); });
}

// A place of a removal exists until the old processes have taken the exit command.
void HelperInstallation::settleEarlierRemovals(const Target& target, Steps& steps) {
  std::vector<std::string> places;
  if (!placesMovedAsideFrom(target.installed, places).report(kLeftover)) isPending_ = true;
  for (const std::string& place : places) {
    if (tellProcessesToExit(place)) {
      addRemoval(place, steps);
    } else {
      isPending_ = true;
    }
  }
}

// Earlier versions of the library remove a bundle in place and leave this mark until the exit
// command.
void HelperInstallation::settleMark(const Target& target) {
  const auto [directory, name] = splitPath(target.installed);
  const std::string mark =
      stringByAppendingPathComponent(directory, "." + name + kRemovalMarkSuffix);
  if (!fileExistsAtPath(mark)) return;
  if (!fileExistsAtPath(target.installed)) tellToExit(target);
  removeItemAtPath(mark).report(kLeftover);  // the next host finds the mark again
}

void HelperInstallation::replace(const Target& target, Steps& steps) {
  std::string place;
  const Status moved = moveAside(target.installed, place);
  const OldHelper old = tellToExit(target);
  if (!moved.report(DiagnosticCause::kHelperNotReplaced)) return;
  addCopy(target, steps);
  if (old == OldHelper::kTold || (old == OldHelper::kNotFound && runsNothing(place))) {
    addRemoval(place, steps);
  } else {
    isPending_ = true;
  }
}

bool HelperInstallation::isRunning(const Target& target) const {
  return TQHPProcessList::share().applicationIsRunning(target.bundleID, target.installed);
}

// It may not take events yet; what becomes of the command is reported as a whole.
OSErr HelperInstallation::sendExitCommand() const {
  KeptReports dropped;
  const KeptReports::Scope scope(dropped);
  return TQHPHelperControl::share().exitHelper(productID_, productVersion_);
}

// A helper that another host launched a moment ago runs before it takes events. If the command were
// lost on it, it would run on as the old one beside its new copy.
HelperInstallation::OldHelper HelperInstallation::tellToExit(const Target& target) const {
  const WaitBudget waits(waits_.atMost(kExitCommandLimit));
  while (isRunning(target)) {
    const AEHandOverLimit limit(waits.remaining());
    const OSErr status = sendExitCommand();
    if (status == noErr) return OldHelper::kTold;
    if (waits.remaining() == std::chrono::milliseconds(0)) {
      reportStatus(DiagnosticCause::kOldHelperNotTold, target.installed, "exitHelper", status);
      return OldHelper::kNotReached;
    }
    sleepFor(waits.atMost(kExitCommandPause));
  }
  return OldHelper::kNotFound;
}

// Tries once. The command goes to the process that takes events, which may be the new helper; it is
// sent only where that process runs from `place`.
// @return whether such a process has taken the command, or none is left.
bool HelperInstallation::tellProcessesToExit(const std::string& place) const {
  std::vector<std::int32_t> processes;
  if (!readProcesses(place, processes)) return false;
  if (processes.empty()) return true;
  TQHPHelperControl& control = TQHPHelperControl::share();
  const AEHandOverLimit limit{std::chrono::milliseconds(0)};
  const bool isReached = control.isAlive(productID_, productVersion_) == noErr;
  const auto receiver = AELastRecipient();
  const bool isOld = std::ranges::any_of(processes, [receiver](auto process) {
    return static_cast<std::uint64_t>(process) == receiver;
  });
  if (isReached && isOld && control.exitHelper(productID_, productVersion_) == noErr) return true;
  report(DiagnosticCause::kOldHelperNotTold, place);
  return false;
}

OptionalString HelperInstallation::installedPath() {
  const HelperLocation location = helperLocation();
  if (!location.name || !location.directory) return std::nullopt;
  return stringByAppendingPathComponent(*location.directory, *location.name) +
         std::string(kApplicationSuffix);
}

bool HelperInstallation::isInstalled() {
  const OptionalString installed = installedPath();
  return installed && fileExistsAtPath(*installed);
}

bool HelperInstallation::launch() {
  if (!isInstalled()) extract();
  return open();
}

bool HelperInstallation::open() const {
  const HelperLocation location = helperLocation();
  const OptionalString installed = installedPath();
  if (!installed) return false;
  // Where the system keeps a database of applications, the look-up makes it known there; the path
  // itself is not needed.
  static_cast<void>(Workspace::sharedWorkspace().fullPathForApplication(*location.name));
  if (TQHPProcessList::share().applicationIsRunning(location.bundleID, *installed)) return true;
  // Not while another host is replacing the copy that would be opened, unless its holder is stuck:
  // an old copy that is opened meanwhile gets the exit command too.
  const DirectoryLock lock(*location.directory, waits_.atMost(kLockLimit));
  if (!lock.isHeld()) reportNotHeld(lock.status());
  return Workspace::sharedWorkspace().openFile(*installed).isOk();
}

void HelperInstallation::explainUnreachable() {
  if (!isReporting()) return;
  const OptionalString wanted = Bundle::mainBundle().infoString(kHelperBundleId);
  const OptionalString installed = installedPath();
  if (!wanted || !installed || !fileExistsAtPath(*installed)) return;
  const OptionalString identifier = Bundle(*installed).bundleIdentifier();
  if (!identifier || identifier->empty()) {
    report(DiagnosticCause::kHelperWithoutIdentifier, *installed);
  } else if (identifier != wanted) {
    report(DiagnosticCause::kHelperIdentifierDiffers, *identifier, *wanted);
  }
}

}  // namespace clientcomm
