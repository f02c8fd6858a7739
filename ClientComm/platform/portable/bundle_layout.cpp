#include "ClientComm/platform/bundle_layout.h"

#include "ClientComm/platform/path.h"

namespace clientcomm {

bool isApplicationPath(std::string_view path) noexcept {
  path = withoutTrailingSlashes(path);
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return name.size() > kApplicationSuffix.size() && name.ends_with(kApplicationSuffix);
}

std::string_view withoutApplicationExtension(std::string_view name) noexcept {
  if (isApplicationPath(name)) name.remove_suffix(kApplicationSuffix.size());
  return name;
}

std::string_view folderOfExecutable(std::string_view path) noexcept {
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos || slash + 1 == path.size()) return {};
  path = path.substr(0, slash);
  for (const std::string_view folder : kExecutableFolders) {
    if (path.size() <= folder.size() || !path.ends_with(folder)) continue;
    const std::string_view bundle = path.substr(0, path.size() - folder.size());
    if (bundle.ends_with('/')) return bundle.substr(0, bundle.size() - 1);
  }
  return {};
}

}  // namespace clientcomm
