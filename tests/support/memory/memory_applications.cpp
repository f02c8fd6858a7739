#include "tests/support/memory/memory_applications.h"

#include "tests/support/memory/memory_system.h"
#include "tests/support/test_sandbox.h"

namespace support {

MemoryApplication::MemoryApplication(const std::string& path)
    : pid_(MemorySystem::current().processes.start(path)) {}

MemoryApplication::~MemoryApplication() { MemorySystem::current().processes.end(pid_); }

std::string makeApplication(const std::string& name, const std::string& identifier,
                            const clientcomm::PropertyListDictionary& extra,
                            const std::string& folder) {
  std::string path = sandbox() + "/" + folder + "/" + name + ".app";
  clientcomm::PropertyListDictionary info{{"CFBundleIdentifier", identifier},
                                          {"CFBundleName", name},
                                          {"CFBundleExecutable", name},
                                          {"CFBundleVersion", "1.0"}};
  for (const auto& [key, value] : extra) info.insert_or_assign(key, value);
  writeFile(path + "/Contents/Info.plist", clientcomm::xmlPropertyList(info));
  const std::string executable = path + "/Contents/Linux/" + name;
  writeFile(executable, "");
  MemorySystem::current().files.file(executable)->isExecutable = true;
  return path;
}

std::string makeHelper(const std::string& folder, const std::string& version) {
  return makeApplication(kHelperName, helperIdentifier(), {{"CFBundleVersion", version}}, folder);
}

}  // namespace support
