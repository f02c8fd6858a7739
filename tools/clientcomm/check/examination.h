#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/types.h"
#include "tools/clientcomm/check/finding.h"

namespace clientcomm::tool {

/// What the next start of the host would do about the installed helper.
enum class Plan {
  kNothing,  ///< The helper cannot be installed.
  kInstall,
  kReplace,
  kKeep,
};

/// A process of the helper.
struct HelperProcess {
  pid_t pid = 0;
  std::string path;  ///< Of the bundle that it was launched by.
  bool takesCalls = false;
};

/// A host, as a look at its bundle shows it, and what was found. Each check reads what those before
/// it have set.
struct Examination {
  explicit Examination(std::string path) : host(std::move(path)) {}

  Bundle host;
  /// Whether there is an Info dictionary; without one the helper is not known.
  bool hasInfo = false;

  // As the host's Info dictionary says.
  OptionalString helperIdentifier;
  OptionalString helperName;
  OptionalString installFolder;

  OptionalString embedded;   ///< The helper in the host's bundle.
  OptionalString installed;  ///< Where it is, or would be, installed.
  bool isInstalled = false;
  Plan plan = Plan::kNothing;
  OptionalString embeddedVersion;
  OptionalString installedVersion;
  std::vector<HelperProcess> processes;

  Findings findings;
};

/// Looks at the host's bundle at `path` and at everything that its helper takes to run.
Examination examine(const std::string& path);

// The checks, in this order.
void checkHost(Examination& examination);
void checkHelper(Examination& examination);
void checkInstallation(Examination& examination);
void checkRuntime(Examination& examination);
void checkProcesses(Examination& examination);

}  // namespace clientcomm::tool
