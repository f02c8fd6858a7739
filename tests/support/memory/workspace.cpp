#include "ClientComm/platform/workspace.h"

#include <algorithm>
#include <cerrno>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {

Workspace& Workspace::sharedWorkspace() {
  static Workspace& workspace = *new Workspace;
  return workspace;
}

OptionalString Workspace::fullPathForApplication(const std::string& name) const {
  if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
  const std::string file = name.ends_with(".app") ? name : name + ".app";
  std::string path =
      stringByAppendingPathComponent(stringByExpandingTildeInPath("~/Applications"), file);
  return support::MemorySystem::current().files.isFolder(path) ? OptionalString(path)
                                                               : std::nullopt;
}

Status Workspace::openFile(const std::string& path) {
  const Bundle bundle(path);
  if (!bundle.executablePath()) return {kProcessErrorDomain, ENOENT, "stat", path};
  auto& processes = support::MemorySystem::current().processes;
  const auto identifier = bundle.bundleIdentifier();
  const bool isRunning = std::any_of(
      processes.all().begin(), processes.all().end(),
      [&](const auto& entry) { return identifier && entry.second.identifier == identifier; });
  if (isRunning) return {};
  processes.start(path);
  processes.launched.push_back(path);
  return {};
}

}  // namespace clientcomm
