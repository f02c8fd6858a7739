#include "tests/support/memory/memory_system.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "ClientComm/platform/process_table.h"
#include "ClientComm/platform/shared_object.h"
#include "tests/support/test_sandbox.h"

namespace support {
namespace {

std::unique_ptr<MemorySystem>& system() {
  static auto* const current = new std::unique_ptr<MemorySystem>(new MemorySystem);
  return *current;
}

}  // namespace

MemorySystem& MemorySystem::current() { return *system(); }

void MemorySystem::reset() {
  clientcomm::SharedObjects::destroyAll();
  clientcomm::replaceSysctl(nullptr);
  system() = std::make_unique<MemorySystem>();
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
  for (const char* name : {"home", "config", "data", "cache", "runtime"}) {
    current().files.makeFolder(sandbox() + "/" + name);
  }
  writeFile(hostBundlePath() + "/Contents/Linux/TestHost", "");
  current().files.file(hostBundlePath() + "/Contents/Linux/TestHost")->isExecutable = true;
  writeHostInfo(defaultHostInfo());
  current().processes.start(hostBundlePath(), getpid());
}

}  // namespace support
