#pragma once

#include <string_view>

#include "ClientComm/platform/fixed_text.h"

/// Names and places inside a bundle. Paths are relative to the bundle's folder.
namespace clientcomm {

inline constexpr char kApplicationExtension[] = "app";
inline constexpr std::string_view kApplicationSuffix = ".app";
inline constexpr std::string_view kLocalizationExtension = "lproj";
inline constexpr char kPropertyListExtension[] = "plist";
inline constexpr char kStringsExtension[] = "strings";

inline constexpr char kContentsFolder[] = "Contents";
inline constexpr char kInfoFile[] = "Contents/Info.plist";
inline constexpr char kResourcesFolder[] = "Contents/Resources";

/// Where executables are, in the order in which they are searched.
inline constexpr FixedText<15> kExecutableFolders[] = {"Contents/Linux", "Contents/MacOS"};

/// The resource, of `kStringsExtension`, that localises the Info dictionary.
inline constexpr char kInfoStringsName[] = "InfoPlist";

/// Whether the last component of `path` is a name and ".app".
bool isApplicationPath(std::string_view path) noexcept;

/// `name` without ".app"; unchanged where it is not an application's.
std::string_view withoutApplicationExtension(std::string_view name) noexcept;

/// The folder that holds the executable at `path` in one of its `kExecutableFolders`, a part of
/// `path`; empty when `path` is not of that form.
std::string_view folderOfExecutable(std::string_view path) noexcept;

}  // namespace clientcomm
