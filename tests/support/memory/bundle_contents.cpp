#include "ClientComm/platform/bundle_contents.h"

#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {

bool isExecutableFile(const std::string& path) noexcept {
  const auto* const file = support::MemorySystem::current().files.file(path);
  return file != nullptr && file->isExecutable;
}

bool isSameBundle(const std::string& path, const std::string& other) noexcept {
  if (path == other) return true;
  const bool isSpelledAlike =
      stringByAppendingPathComponent(path, "") == stringByAppendingPathComponent(other, "");
  return isSpelledAlike && support::MemorySystem::current().files.exists(path);
}

InfoReading readInfoDictionary(const std::string& path,
                               std::optional<PropertyListDictionary>& info) {
  info = dictionaryWithContentsOfFile(path);
  return InfoReading::kDone;
}

}  // namespace clientcomm
