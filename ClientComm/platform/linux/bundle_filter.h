#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "ClientComm/platform/linux/executable_link.h"

namespace clientcomm {

/// Rules out processes that are not the application of a bundle by what the kernel says they run,
/// before anything is read that they or their bundles say.
class BundleFilter {
 public:
  explicit BundleFilter(std::string bundlePath);

  /// False only where the process `pid` is not the application of the bundle under any path: it
  /// runs no bundle, or one of another name that does not hold the same executable.
  bool mayRun(pid_t pid) const;

 private:
  bool holds(const ExecutableLink& link, std::string_view bundlePath) const;

  std::string bundlePath_;
  std::string name_;
};

}  // namespace clientcomm
