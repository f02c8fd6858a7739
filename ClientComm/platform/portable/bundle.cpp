#include "ClientComm/platform/bundle.h"

#include <utility>

#include "ClientComm/platform/bundle_contents.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/portable/localization.h"
#include "ClientComm/platform/shared_object.h"

namespace clientcomm {
namespace {

constexpr const char* kLastResortLocalization = "en";

// How often a bundle may be moved while its Info dictionary is being read.
constexpr int kMostMoves = 3;

// The application bundle whose executable is at `executable`; else the executable's folder.
std::string bundleEnclosing(std::string_view executable) {
  const std::string_view bundle = folderOfExecutable(executable);
  return isApplicationPath(bundle) ? std::string(bundle) : splitPath(executable).directory;
}

std::optional<PropertyListValue> copyFrom(const std::optional<PropertyListDictionary>& dictionary,
                                          std::string_view key) {
  const PropertyListValue* const value = dictionary ? valueFor(*dictionary, key) : nullptr;
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

// The names of the localisation folders in `resources`, without their extension.
std::vector<std::string> localizationsIn(const std::string& resources) {
  std::vector<std::string> names;
  for (std::string& name : contentsOfDirectoryAtPath(resources)) {
    if (pathExtension(name) != kLocalizationExtension) continue;
    name.resize(name.size() - kLocalizationExtension.size() - 1);
    names.push_back(std::move(name));
  }
  return names;
}

std::string localizationFolder(const std::string& localization) {
  return localization + "." + std::string(kLocalizationExtension);
}

// The path as this process was launched by, which a host knows it under, where that leads to the
// same bundle as the path that the kernel gives: that one has no symbolic links.
std::string launchedBundlePath() {
  std::string path = bundleEnclosing(ownExecutablePath());
  const std::string name = ownLaunchPath();
  if (name.empty()) return path;
  std::string launched = bundleEnclosing(name);
  return isApplicationPath(launched) && isSameBundle(launched, path) ? launched : path;
}

}  // namespace

struct CLIENTCOMM_LOCAL Bundle::State {
  std::string path;
  std::optional<PropertyListDictionary> info = std::nullopt;
  bool isOwn = false;  ///< Of this process.

  std::string infoPath() const { return stringByAppendingPathComponent(path, kInfoFile); }

  std::optional<PropertyListDictionary> readInfo() const {
    if (!isApplicationPath(path)) return std::nullopt;
    return dictionaryWithContentsOfFile(infoPath());
  }

  /// Reads the Info dictionary that is kept. After a failure that may pass it stays unread, since a
  /// process that kept an empty one would have no identity for its life.
  void keepInfo() {
    std::string place = path;
    auto read = infoAt(place);
    // A process may be so young that its bundle is moved aside for another before it has read this.
    // Without an identity it would never take the exit command, with the other's it would be two.
    for (int moves = 0; isOwn && moves < kMostMoves; ++moves) {
      const std::string now = bundleEnclosing(ownExecutablePath());
      if (!isApplicationPath(now) || isSameBundle(now, place)) break;
      place = now;
      read = infoAt(place);
    }
    if (read) info = *std::move(read);
  }

  /// The Info dictionary of the bundle at `place`, empty where there is none; nothing when it
  /// cannot be read now.
  static std::optional<PropertyListDictionary> infoAt(const std::string& place) {
    using enum InfoReading;
    if (!isApplicationPath(place)) return PropertyListDictionary();
    const std::string file = stringByAppendingPathComponent(place, kInfoFile);
    std::optional<PropertyListDictionary> read;
    InfoReading reading = readInfoDictionary(file, read);
    if (reading == kMayPass) reading = readInfoDictionary(file, read);
    if (reading == kMayPass) return std::nullopt;
    return std::move(read).value_or(PropertyListDictionary());
  }
};

Bundle& Bundle::mainBundle() {
  static SharedObject<Bundle> bundle;
  return bundle.get([] {
    auto* const own = new Bundle(launchedBundlePath());
    own->state_->isOwn = true;
    return own;
  });
}

Bundle::Bundle(std::string path) : state_(std::make_unique<State>(State{std::move(path)})) {}
Bundle::~Bundle() = default;
Bundle::Bundle(Bundle&&) noexcept = default;
Bundle& Bundle::operator=(Bundle&&) noexcept = default;

const std::string& Bundle::bundlePath() const { return state_->path; }

const PropertyListDictionary& Bundle::infoDictionary() const {
  static const auto* const unread = new PropertyListDictionary;
  if (!state_->info) state_->keepInfo();
  return state_->info ? *state_->info : *unread;
}

std::optional<PropertyListValue> Bundle::infoValue(std::string_view key) const {
  const PropertyListValue* const value = valueFor(infoDictionary(), key);
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

OptionalString Bundle::infoString(std::string_view key) const {
  return stringFor(infoDictionary(), key);
}

std::optional<PropertyListValue> Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  if (const auto strings = pathForResource(kInfoStringsName, kStringsExtension)) {
    if (auto localized = copyFrom(dictionaryWithContentsOfFile(*strings), key)) return localized;
  }
  return copyFrom(state_->readInfo(), key);
}

OptionalString Bundle::bundleIdentifier() const { return infoString(kCFBundleIdentifierKey); }

OptionalString Bundle::executablePath() const {
  if (!isApplicationPath(state_->path)) return std::nullopt;
  OptionalString name = infoString(kCFBundleExecutableKey);
  if (!name) {
    name = std::string(withoutApplicationExtension(lastPathComponent(state_->path)));
  }
  // A name that leads elsewhere is none.
  if (name->empty() || name->find('/') != std::string::npos) return std::nullopt;
  for (const std::string_view folder : kExecutableFolders) {
    std::string path =
        stringByAppendingPathComponent(stringByAppendingPathComponent(state_->path, folder), *name);
    if (isExecutableFile(path)) return path;
  }
  return std::nullopt;
}

std::string Bundle::resourcePath() const {
  if (!isApplicationPath(state_->path)) return state_->path;
  return stringByAppendingPathComponent(state_->path, kResourcesFolder);
}

OptionalString Bundle::pathForResource(std::string_view name, std::string_view type) const {
  if (name.empty()) return std::nullopt;
  std::string file(name);
  if (!type.empty()) file.append(".").append(type);
  const std::string resources = resourcePath();
  std::string path = stringByAppendingPathComponent(resources, file);
  if (fileExistsAtPath(path)) return path;
  const std::vector<std::string> folders = localizationsIn(resources);
  const std::vector<std::string> languages[] = {userLanguages(), {developmentRegion()}};
  for (const auto& wanted : languages) {
    for (const std::string& localization : matchingLocalizations(folders, wanted)) {
      path = stringByAppendingPathComponent(
          stringByAppendingPathComponent(resources, localizationFolder(localization)), file);
      if (fileExistsAtPath(path)) return path;
    }
  }
  return std::nullopt;
}

std::vector<std::string> Bundle::pathsForResourcesOfType(std::string_view type,
                                                         std::string_view directory) const {
  const std::string folder = stringByAppendingPathComponent(state_->path, directory);
  std::vector<std::string> paths;
  for (const std::string& name : contentsOfDirectoryAtPath(folder)) {
    if (pathExtension(name) == type) paths.push_back(stringByAppendingPathComponent(folder, name));
  }
  return paths;
}

std::vector<std::string> Bundle::preferredLocalizations() const {
  const std::vector<std::string> folders = localizationsIn(resourcePath());
  std::vector<std::string> matches = matchingLocalizations(folders, userLanguages());
  if (!matches.empty()) return matches;
  const std::string region = developmentRegion();
  matches = matchingLocalizations(folders, {region});
  matches.resize(1, region);
  return matches;
}

std::string Bundle::developmentRegion() const {
  OptionalString region = infoString(kCFBundleDevelopmentRegionKey);
  return region && !region->empty() ? *std::move(region) : kLastResortLocalization;
}

}  // namespace clientcomm
