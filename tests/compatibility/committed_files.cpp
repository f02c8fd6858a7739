#include "tests/compatibility/committed_files.h"

#include <cstddef>
#include <stdexcept>

#include "ClientComm/platform/linux/runtime_folder.h"
#include "tests/support/test_sandbox.h"

namespace support {

std::string committed(const std::string& name) {
  std::string bytes = readFile(std::string(FILES_FOLDER) + "/" + name);
  if (bytes.empty()) throw std::runtime_error("no committed file " + name);
  return bytes;
}

std::string committed(const std::string& name,
                      const std::vector<std::pair<std::string, std::string>>& replacements) {
  std::string bytes = committed(name);
  for (const auto& [from, to] : replacements) {
    std::size_t position = bytes.find(from);
    if (position == std::string::npos) throw std::runtime_error("no " + from + " in " + name);
    for (; position != std::string::npos; position = bytes.find(from, position + to.size())) {
      bytes.replace(position, from.size(), to);
    }
  }
  return bytes;
}

clientcomm::PropertyListDictionary committedDictionary(const std::string& name) {
  return *clientcomm::propertyListFromBytes(committed(name)).value().dictionary();
}

std::vector<std::string> committedLists() {
  return {"Info.plist",
          "endpoint",
          "launch",
          "preferences.plist",
          "process.4711",
          "process.4711-bytes",
          "process.4711-launching",
          "process.4711-tool"};
}

std::vector<clientcomm::PropertyListValue> valuesOfOtherTypes(
    const clientcomm::PropertyListValue& value) {
  using Value = clientcomm::PropertyListValue;
  const Value all[] = {Value(true),
                       Value(7),
                       Value(-7),
                       Value(7.5),
                       Value("7"),
                       Value(Value::Data{std::byte{7}}),
                       Value(Value::Array()),
                       Value(clientcomm::PropertyListDate{7}),
                       Value(Value::Dictionary{{"7", Value(7)}})};
  std::vector<Value> others;
  for (const Value& other : all) {
    if (other.variant().index() != value.variant().index() || other == Value(-7)) {
      others.push_back(other);
    }
  }
  return others;
}

std::string runtimePath(const std::string& name) {
  return clientcomm::runtimeFolderPath() + "/" + name;
}

}  // namespace support
