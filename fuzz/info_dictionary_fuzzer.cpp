// A bundle as it lies on the disk, with any Info.plist and any InfoPlist.strings.
//
// The input: a byte that picks the user's language, the length of the Info.plist (2 bytes), the
// Info.plist, and the strings file.

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/property_list.h"
#include "fuzz/fuzz.h"
#include "fuzz/property_lists.h"

namespace {

using clientcomm::Bundle;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using fuzz::require;
using Value = std::optional<PropertyListValue>;

constexpr std::array<const char*, 3> kLocalizations = {"en", "de", "zh_CN"};
constexpr std::array<const char*, 4> kLanguages = {"", "de_AT.UTF-8", "zh-Hans:en", "xx"};

// How many values of each dictionary are looked at, for the speed of it.
constexpr int kMostValues = 4;

const std::string& bundlePath() {
  static const auto* const path = new std::string(fuzz::privateFolder() + "/Some App.app");
  return *path;
}

std::string stringsPath(const std::string& localization) {
  return bundlePath() + "/Contents/Resources/" + localization + ".lproj/InfoPlist.strings";
}

Value valueIn(const PropertyListDictionary& dictionary, std::string_view key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? Value() : Value(found->second);
}

bool isSame(const Value& a, const Value& b) {
  if (!a || !b) return a.has_value() == b.has_value();
  return fuzz::asReadFromXml(*a) == fuzz::asReadFromXml(*b);
}

void requireExecutable(const Bundle& bundle) {
  const auto path = bundle.executablePath();
  if (!path) return;
  struct stat status {};
  require(path->starts_with(bundlePath() + "/Contents/") && stat(path->c_str(), &status) == 0 &&
              S_ISREG(status.st_mode) && (status.st_mode & S_IXUSR) != 0,
          "the executable is one, within the bundle");
}

// What the texts of a dictionary lead to when they are used as names.
void lookUp(const Bundle& bundle, std::string_view text) {
  for (const std::string_view type : {"", "strings", "lproj"}) {
    const auto path = bundle.pathForResource(text, type);
    if (path) require(clientcomm::fileExistsAtPath(*path), "a resource that is found exists");
  }
  for (const std::string& path : bundle.pathsForResourcesOfType(text, "Contents/Resources")) {
    require(clientcomm::pathExtension(path) == text, "resources are found by their extension");
  }
  static_cast<void>(bundle.pathsForResourcesOfType("app", text));
}

void requireInfo(const Bundle& bundle, const PropertyListDictionary& info,
                 const PropertyListDictionary& strings) {
  require(isSame(bundle.infoDictionary(), info), "the Info dictionary is that of the file");
  require(bundle.bundleIdentifier() == bundle.infoString(clientcomm::kCFBundleIdentifierKey),
          "the identifier is that of the Info dictionary");
  for (const PropertyListDictionary* dictionary : {&info, &strings}) {
    int budget = kMostValues;
    for (const auto& [key, value] : *dictionary) {
      if (budget-- == 0) break;
      const Value plain = valueIn(info, key);
      const Value localized = valueIn(strings, key);
      require(isSame(bundle.infoValue(key), plain), "a value is found under its key");
      require(bundle.infoString(key) == (plain ? plain->stringValue() : std::nullopt),
              "only strings are found as such");
      require(isSame(bundle.objectForInfoDictionaryKey(key), localized ? localized : plain),
              "a localised value goes before one that is not");
      if (const auto text = value.stringValue()) lookUp(bundle, *text);
    }
  }
}

bool isThere(const std::string& localization) {
  return std::find(kLocalizations.begin(), kLocalizations.end(), localization) !=
         kLocalizations.end();
}

std::vector<std::string> requireLocalizations(const Bundle& bundle) {
  const std::vector<std::string> localizations = bundle.preferredLocalizations();
  require(!localizations.empty(), "there is always a localisation");
  for (const std::string& name : localizations) {
    require(isThere(name) || localizations.size() == 1,
            "a localisation is there, or the last resort");
  }
  return localizations;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  for (const char* localization : kLocalizations) {
    const std::filesystem::path strings = stringsPath(localization);
    std::filesystem::create_directories(strings.parent_path());
  }
  for (const char* folder : {"Linux", "MacOS"}) {
    const std::string path = bundlePath() + "/Contents/" + folder;
    std::filesystem::create_directories(path);
    fuzz::writeFile(path + "/Some App", "#!/bin/sh\n");
    std::filesystem::permissions(path + "/Some App", std::filesystem::perms::owner_all);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  setenv("LANGUAGE", kLanguages[input.takeByte() % kLanguages.size()], 1);
  const std::size_t infoLength = input.takeByte() + 256U * input.takeByte();
  const std::string_view rest = input.takeRest();
  const std::string infoPath = bundlePath() + "/Contents/Info.plist";
  fuzz::writeFile(infoPath, rest.substr(0, infoLength));
  const std::string_view strings = rest.substr(std::min(infoLength, rest.size()));
  for (const char* localization : kLocalizations) {
    fuzz::writeFile(stringsPath(localization), strings);
  }

  const auto info = clientcomm::dictionaryWithContentsOfFile(infoPath);
  // A small binary list can unfold into one that takes long to copy.
  if (info && fuzz::measureOf(*info).count > 20'000) return 0;
  const Bundle bundle(bundlePath());
  const std::vector<std::string> localizations = requireLocalizations(bundle);
  std::optional<PropertyListDictionary> localized;
  if (isThere(localizations.front())) {
    localized = clientcomm::dictionaryWithContentsOfFile(stringsPath(localizations.front()));
  }
  requireInfo(bundle, info.value_or(PropertyListDictionary()),
              localized.value_or(PropertyListDictionary()));
  requireExecutable(bundle);
  TQHPHelperCommunicate::compareVersion(bundle.infoString(clientcomm::kCFBundleVersionKey),
                                        "1.2.3");
  return 0;
}
