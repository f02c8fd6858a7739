#include "tests/support/test_sandbox.h"

#include <gtest/gtest.h>

#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"

namespace support {

const std::string& sandbox() {
  static const auto* const path = new std::string("/sandbox");
  return *path;
}

void writeFile(const std::string& path, std::string_view text) {
  MemoryFiles& files = MemorySystem::current().files;
  files.makeFolder(clientcomm::splitPath(path).directory);
  EXPECT_EQ(files.write(path, text), 0) << path;
}

std::string readFile(const std::string& path) {
  const auto* const file = MemorySystem::current().files.file(path);
  return file == nullptr ? std::string() : file->bytes;
}

bool isFolder(const std::string& path) { return MemorySystem::current().files.isFolder(path); }

bool runLoopUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  return MemorySystem::current().clock.runUntil(condition, limit);
}

}  // namespace support
