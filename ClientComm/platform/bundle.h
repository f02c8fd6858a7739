#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/export.h"
#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// Info dictionary key: the identifier by which an application is called.
inline constexpr const char kCFBundleIdentifierKey[] = "CFBundleIdentifier";
/// Info dictionary key: the name for users.
inline constexpr const char kCFBundleNameKey[] = "CFBundleName";
/// Info dictionary key: name of the executable in Contents/Linux.
inline constexpr const char kCFBundleExecutableKey[] = "CFBundleExecutable";
/// Info dictionary key: the version, by which copies of a helper are compared.
inline constexpr const char kCFBundleVersionKey[] = "CFBundleVersion";
/// Info dictionary key: the language that resources are written in first.
inline constexpr const char kCFBundleDevelopmentRegionKey[] = "CFBundleDevelopmentRegion";

/// Key of the full path of the bundle that a process was started from, in what is known of the
/// process; its other keys are those of the Info dictionary.
inline constexpr const char kBundlePathKey[] = "BundlePath";

/// A folder of the form `Name.app/Contents/{Info.plist, Linux/<executable>, Resources/,
/// Frameworks/}` (MacOS/ is accepted in place of Linux/). A folder of any other form is a bundle
/// with an empty Info dictionary, whose resources are in the folder itself.
class CLIENTCOMM_EXPORT Bundle {
 public:
  /// The bundle that encloses the running executable; where none does, the executable's folder.
  /// Made on first use, never destroyed; its Info dictionary is read once.
  static Bundle& mainBundle();

  /// The bundle at `path`, which is kept unchanged. Nothing is read before it is needed.
  explicit Bundle(std::string path);
  ~Bundle();
  /// `other` may only be assigned to or destroyed afterwards.
  Bundle(Bundle&& other) noexcept;
  /// `other` may only be assigned to or destroyed afterwards.
  Bundle& operator=(Bundle&& other) noexcept;

  /// The path that the object was made with.
  const std::string& bundlePath() const;

  /// The Info dictionary as of its first use; empty when missing or malformed. One that
  /// could not be read for lack of descriptors or memory is read again by the next use.
  const PropertyListDictionary& infoDictionary() const;

  /// The Info dictionary's value for `key`, not localised; nothing when absent.
  std::optional<PropertyListValue> infoValue(std::string_view key) const;

  /// The Info dictionary's string for `key`, not localised; nil when absent or not a string.
  OptionalString infoString(std::string_view key) const;

  /// The localised look-up: the value of `key` in the resource InfoPlist.strings, found as
  /// `pathForResource` finds any, else in the Info dictionary. Reads the files anew,
  /// not the cached dictionary.
  std::optional<PropertyListValue> objectForInfoDictionaryKey(std::string_view key) const;

  /// The Info dictionary's CFBundleIdentifier; nil when absent or not a string.
  OptionalString bundleIdentifier() const;

  /// Full path of the executable; nil when the bundle has none on disk that can be executed.
  OptionalString executablePath() const;

  /// Contents/Resources of an application bundle, else the folder itself.
  std::string resourcePath() const;

  /// Full path of the resource `name`.`type`: of the first that exists in the resources' folder
  /// itself, the folder of each preferred localisation (for each language, that of the user's
  /// region before that of the language alone), the folder of the development region. `type` may
  /// be empty. nil when there is none.
  OptionalString pathForResource(std::string_view name, std::string_view type) const;

  /// Full paths of all entries of `directory` (relative to the bundle's path) with the extension
  /// `type`, in the order that the file system gives.
  std::vector<std::string> pathsForResourcesOfType(std::string_view type,
                                                   std::string_view directory) const;

  /// The bundle's localisations in the user's order of preference (LANGUAGE, LC_ALL, LC_MESSAGES,
  /// LANG), by the names of their folders; never empty: without a match the development region,
  /// else "en".
  std::vector<std::string> preferredLocalizations() const;

 private:
  CLIENTCOMM_LOCAL std::string developmentRegion() const;

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace clientcomm
