#include "ClientComm/platform/bundle_contents.h"

#include "ClientComm/platform/path.h"
#include "tests/support/memory/memory_system.h"

namespace clientcomm {

bool isExecutableFile(const std::string& path) noexcept {
  const auto* const file = support::MemorySystem::current().files.file(path);
  return file != nullptr && file->isExecutable;
}

bool isSameBundle(const std::string& path, const std::string& other) noexcept {
  return stringByAppendingPathComponent(path, "") == stringByAppendingPathComponent(other, "");
}

InfoReading readInfoDictionary(const std::string& path,
                               std::optional<PropertyListDictionary>& info) {
  info = dictionaryWithContentsOfFile(path);
  return InfoReading::kDone;
}

}  // namespace clientcomm
