#include "ClientComm/platform/path.h"

#include <algorithm>

namespace clientcomm {

std::string_view withoutTrailingSlashes(std::string_view path) noexcept {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

SplitPath splitPath(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {".", std::string(path)};
  return {std::string(path.substr(0, std::max<std::size_t>(slash, 1))),
          std::string(path.substr(slash + 1))};
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
  std::string joined;
  joined.reserve(path.size() + 1 + component.size());
  const auto append = [&joined](std::string_view part) {
    for (;;) {
      while (joined.ends_with('/') && part.starts_with('/')) part.remove_prefix(1);
      const std::size_t slashes = part.find("//");
      joined += part.substr(0, slashes == std::string_view::npos ? slashes : slashes + 1);
      if (slashes == std::string_view::npos) return;
      part.remove_prefix(slashes + 1);
    }
  };
  append(path);
  while (component.starts_with('/')) component.remove_prefix(1);
  if (!path.empty() && !component.empty()) append("/");
  append(component);
  joined.resize(withoutTrailingSlashes(joined).size());
  return joined;
}

std::string lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string pathExtension(std::string_view path) {
  const std::string name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

}  // namespace clientcomm
