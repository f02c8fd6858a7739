#include "ClientComm/platform/removed_bundle.h"

#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/removal_format.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {
namespace {

std::string prefixOfPlaces(const std::string& name) {
  return "." + name + std::string(kRemovedInfix);
}

}  // namespace

Status moveAside(const std::string& path, std::string& place) {
  auto& system = support::MemorySystem::current();
  const SplitPath target = splitPath(path);
  int number = 0;
  do {
    place = stringByAppendingPathComponent(
        target.directory, prefixOfPlaces(target.name) + "1-" + std::to_string(++number));
  } while (system.files.exists(place));
  if (const int code = system.files.move(path, place); code != 0) {
    return Status::ofFile(code, "rename", path);
  }
  system.processes.follow(path, place);
  return {};
}

Status placesMovedAsideFrom(const std::string& path, std::vector<std::string>& places) {
  const SplitPath target = splitPath(path);
  places.clear();
  for (const std::string& entry : contentsOfDirectoryAtPath(target.directory)) {
    if (!entry.starts_with(prefixOfPlaces(target.name))) continue;
    places.push_back(stringByAppendingPathComponent(target.directory, entry));
  }
  return {};
}

Status processesRunningBelow(const std::string& path, std::vector<std::int32_t>& processes) {
  processes.clear();
  for (const auto& [pid, process] : support::MemorySystem::current().processes.all()) {
    if (process.executable.starts_with(path + "/")) processes.push_back(pid);
  }
  return {};
}

}  // namespace clientcomm
