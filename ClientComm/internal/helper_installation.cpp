#include "ClientComm/internal/helper_installation.h"

#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPProcessList.h"
#include "platform/bundle.h"
#include "platform/error.h"
#include "platform/file_lock.h"
#include "platform/file_manager.h"
#include "platform/workspace.h"

namespace clientcomm {
namespace {

using platform::Bundle;

constexpr const char kHelperAppNameFallback[] = "Helper App name";
constexpr const char kHelperInstallPathFallback[] = "Helper location path";

// How long one host waits for another that is installing; a helper of several hundred megabytes is
// copied within it. Whoever gives up leaves it to the next launch.
constexpr std::chrono::seconds kInstallationLimit{10};

// How long an old helper that is still starting is given until it takes the exit command.
constexpr std::chrono::seconds kExitCommandLimit{5};
constexpr std::chrono::milliseconds kExitCommandPause{10};

/// Where the host wants its helper, by its Info dictionary; nil where it does not say.
struct HelperLocation {
  OptionalString bundleID;
  OptionalString name;
  OptionalString directory;
};

OptionalString expandedPath(const OptionalString& path) {
  return path ? OptionalString(platform::stringByExpandingTildeInPath(*path)) : std::nullopt;
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

OptionalString versionOfBundle(const std::string& path) {
  return Bundle(path).infoString(platform::kCFBundleVersionKey);
}

}  // namespace

void HelperInstallation::extract() const {
  const HelperLocation location = helperLocation();
  if (!location.name || !location.directory) return;
  // Not for another user: a helper that root installs is one that its owner cannot replace.
  if (!platform::mayCreateItemAtPath(*location.directory)) return;
  if (!platform::fileExistsAtPath(*location.directory)) {
    platform::createDirectoryAtPath(*location.directory);
  }
  const OptionalString resource = Bundle::mainBundle().pathForResource(*location.name, "app");
  if (!resource) return;
  const std::string installed = platform::stringByAppendingPathComponent(
      *location.directory, platform::lastPathComponent(*resource));
  // Hosts that start at the same moment take turns; each judges what the one before it left.
  const platform::DirectoryLock lock(*location.directory, kInstallationLimit);
  if (!lock.isHeld()) return;
  // Stands from the removal until the exit command was sent, so that the next host sends it
  // should this process end between the two.
  const std::string mark = platform::stringByAppendingPathComponent(
      *location.directory, "." + platform::lastPathComponent(installed) + ".removed");
  const auto isRunning = [&] {
    return TQHPProcessList::share().applicationIsRunning(location.bundleID, installed);
  };
  std::optional<platform::Error> error;
  const bool isInstalled = platform::fileExistsAtPath(installed);
  if (isInstalled) {
    if (TQHPHelperCommunicate::compareVersion(versionOfBundle(*resource),
                                              versionOfBundle(installed)) != 1)
      return;
    platform::createDirectoryAtPath(mark);
    error = platform::removeItemAtPath(installed);
  }
  if (isInstalled || platform::fileExistsAtPath(mark)) {
    if (isRunning()) tellToExit(isRunning);
    platform::removeItemAtPath(mark);
  }
  if (error) return;
  platform::copyPath(*resource, installed);
}

// A helper that another host launched a moment ago runs before it takes events. If the command were
// lost on it, it would run on as the old one beside its new copy.
void HelperInstallation::tellToExit(const std::function<bool()>& isRunning) const {
  const auto limit = std::chrono::steady_clock::now() + kExitCommandLimit;
  while (TQHPHelperControl::share().exitHelper(productID_, productVersion_) ==
             platform::procNotFound &&
         std::chrono::steady_clock::now() < limit && isRunning()) {
    std::this_thread::sleep_for(kExitCommandPause);
  }
}

bool HelperInstallation::launch() const {
  const HelperLocation location = helperLocation();
  if (!location.name || !location.directory) return false;
  const std::string installed =
      platform::stringByAppendingPathComponent(*location.directory, *location.name) + ".app";
  if (!platform::fileExistsAtPath(installed)) extract();
  // Where the system keeps a database of applications, the look-up makes it known there; the path
  // itself is not needed.
  static_cast<void>(platform::Workspace::sharedWorkspace().fullPathForApplication(*location.name));
  if (!TQHPProcessList::share().applicationIsRunning(location.bundleID, installed)) {
    // Not while another host is replacing the copy that would be opened.
    const platform::DirectoryLock lock(*location.directory, kInstallationLimit);
    if (!platform::Workspace::sharedWorkspace().openFile(installed)) return false;
  }
  return true;
}

}  // namespace clientcomm
