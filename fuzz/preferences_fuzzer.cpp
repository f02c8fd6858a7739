// A settings file as it may have been left by anything: read, a value set and written over it.
//
// The input: a byte of options, a line with the key, a line with the text of the value, and the
// file.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ClientComm/platform/posix/preferences_format.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/user_defaults.h"
#include "fuzz/fuzz.h"
#include "fuzz/property_lists.h"

namespace {

using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using fuzz::require;
using Contents = std::optional<PropertyListDictionary>;
using Value = std::optional<PropertyListValue>;

constexpr const char* kDomain = "com.example.preferences";

constexpr unsigned kNoFile = 0x80;

const std::string& path() {
  static const auto* const path =
      new std::string(fuzz::privateFolder() + "/" + clientcomm::kPreferencesFolderName + "/" +
                      kDomain + clientcomm::kPreferencesExtension);
  return *path;
}

std::string asidePath() { return path() + clientcomm::kCorruptInfix + "1"; }

std::string readFile(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Value valueOfKind(unsigned kind, std::string_view text) {
  switch (kind % 8) {
    case 0:
      return std::nullopt;
    case 1:
      return clientcomm::boolValue(text);
    case 2:
      return clientcomm::intValue(text);
    case 3:
      return clientcomm::intValue(text) / 64.0;
    case 4: {
      const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
      return PropertyListValue::Data(bytes, bytes + text.size());
    }
    case 5:
      return PropertyListValue::Array{std::string(text), std::int64_t{1}};
    case 6:
      return PropertyListDictionary{{std::string(text), std::string(text)}};
    default:
      return std::string(text);
  }
}

// Without what is no settings file, or nothing of the kind is left.
Value valueIn(const Contents& contents, std::string_view key) {
  if (!contents) return std::nullopt;
  const auto found = contents->find(key);
  return found == contents->end() ? Value() : Value(found->second);
}

// Compared as XML keeps them; a NaN would not equal itself either.
bool isSame(const Value& a, const Value& b) {
  if (!a || !b) return a.has_value() == b.has_value();
  return fuzz::asReadFromXml(*a) == fuzz::asReadFromXml(*b);
}

bool isSame(const Contents& a, const Contents& b) {
  return isSame(a ? Value(*a) : Value(), b ? Value(*b) : Value());
}

void requireRead(clientcomm::UserDefaults& defaults, const Contents& contents) {
  require(isSame(defaults.persistentDomainForName(kDomain), contents),
          "the file's values are read");
  if (!contents) return;
  int budget = 16;
  for (const auto& [key, value] : *contents) {
    if (budget-- == 0) break;
    require(isSame(defaults.objectForKey(key), value), "a value is found under its key");
    require(defaults.stringForKey(key) == value.stringValue(), "only strings are found as such");
  }
}

void requireWritten(const Contents& before, std::string_view key, const Value& value) {
  PropertyListDictionary expected = before.value_or(PropertyListDictionary());
  if (value) {
    expected.insert_or_assign(std::string(key), *value);
  } else {
    expected.erase(std::string(key));
  }
  const Contents after = clientcomm::dictionaryWithContentsOfFile(path());
  // Nothing is written where there is nothing to write.
  if (!before && !value) {
    require(!after, "removing a value makes no file");
  } else {
    require(after.has_value(), "the file can be read after a write");
    require(isSame(after, expected), "the file holds what was set, and all that it held before");
  }
  clientcomm::UserDefaults another(kDomain);
  require(isSame(another.persistentDomainForName(kDomain), after), "another reader sees the same");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::filesystem::create_directory(fuzz::privateFolder() + "/" +
                                    clientcomm::kPreferencesFolderName);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned options = input.takeByte();
  const std::string key(input.takeLine());
  const Value value = valueOfKind(options, input.takeLine());
  const std::string_view file = input.takeRest();
  const bool hasFile = (options & kNoFile) == 0;

  std::filesystem::remove(asidePath());
  std::filesystem::remove(path());
  if (hasFile) fuzz::writeFile(path(), file);
  const Contents before = clientcomm::dictionaryWithContentsOfFile(path());
  // A small binary list can unfold into one that takes long to write.
  if (before && fuzz::measureOf(*before).count > 20'000) return 0;

  clientcomm::UserDefaults defaults(kDomain);
  requireRead(defaults, before);
  require(isSame(defaults.objectForKey(key), valueIn(before, key)), "the key is looked up");
  defaults.setObject(value, key);
  require(isSame(defaults.objectForKey(key), value), "what is set is there at once");
  require(defaults.synchronize(), "settings can be written");
  requireWritten(before, key, value);
  const bool wasCorrupt = hasFile && !before && !file.empty();
  require(std::filesystem::exists(asidePath()) == wasCorrupt, "only a corrupt file is kept aside");
  if (wasCorrupt) require(readFile(asidePath()) == file, "a corrupt file is kept as it was");
  return 0;
}
