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

std::optional<Error> moveAside(const std::string& path, std::string& place) {
  auto& system = support::MemorySystem::current();
  const SplitPath target = splitPath(path);
  int number = 0;
  do {
    place = stringByAppendingPathComponent(
        target.directory, prefixOfPlaces(target.name) + "1-" + std::to_string(++number));
  } while (system.files.exists(place));
  if (const int code = system.files.move(path, place); code != 0) {
    return Error{kFileErrorDomain, code, {{"FilePath", path}}};
  }
  system.processes.follow(path, place);
  return std::nullopt;
}

std::vector<std::string> placesMovedAsideFrom(const std::string& path) {
  const SplitPath target = splitPath(path);
  std::vector<std::string> places;
  for (const std::string& entry : contentsOfDirectoryAtPath(target.directory)) {
    if (!entry.starts_with(prefixOfPlaces(target.name))) continue;
    places.push_back(stringByAppendingPathComponent(target.directory, entry));
  }
  return places;
}

std::optional<std::vector<std::int32_t>> processesRunningBelow(const std::string& path) {
  std::vector<std::int32_t> processes;
  for (const auto& [pid, process] : support::MemorySystem::current().processes.all()) {
    if (process.executable.starts_with(path + "/")) processes.push_back(pid);
  }
  return processes;
}

}  // namespace clientcomm
