#include "ClientComm/platform/linux/bundle_filter.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "ClientComm/platform/linux/local_file.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/removed_name.h"

namespace clientcomm {

BundleFilter::BundleFilter(std::string bundlePath)
    : bundlePath_(std::move(bundlePath)), name_(lastPathComponent(bundlePath_)) {}

bool BundleFilter::mayRun(pid_t pid) const {
  const ExecutableLink link = ExecutableLink::ofProcess(pid);
  // A kernel thread runs no file, and a process that has exited none any longer.
  if (link.error() == ENOENT || link.error() == ESRCH) return false;
  if (link.error() != 0) return true;
  const std::string_view path = bundleOfExecutable(link.target());
  if (path.empty()) return false;
  // Only the record of a process tells the path of a bundle that was removed or moved away.
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return name == name_ || link.isMarkedAsRemoved() || !nameBeforeRemoval(name).empty() ||
         holds(link, path);
}

// A link or a mount may give the bundle at `bundlePath` the name of this one. Both hold the
// executable then.
bool BundleFilter::holds(const ExecutableLink& link, std::string_view bundlePath) const {
  const std::string executable = bundlePath_ + std::string(link.target().substr(bundlePath.size()));
  const auto status = statusWithoutWaiting(AT_FDCWD, executable.c_str());
  return status ? link.leadsTo(*status) : errno != ENOENT && errno != ENOTDIR;
}

}  // namespace clientcomm
