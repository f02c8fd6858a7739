#include "ClientComm/platform/posix/removed_name.h"

#include <unistd.h>

#include <algorithm>

#include "ClientComm/platform/path.h"
#include "ClientComm/platform/removal_format.h"

namespace clientcomm {
namespace {

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

std::string_view nameBeforeRemoval(std::string_view entry) noexcept {
  const std::size_t mark = entry.rfind(kRemovedInfix);
  if (!entry.starts_with('.') || mark == std::string_view::npos) return {};
  const std::string_view numbers = entry.substr(mark + kRemovedInfix.size());
  const std::size_t dash = numbers.find('-');
  if (dash == std::string_view::npos) return {};
  if (!isNumber(numbers.substr(0, dash)) || !isNumber(numbers.substr(dash + 1))) return {};
  return mark == 0 ? std::string_view() : entry.substr(1, mark - 1);
}

std::string nextRemovedName(std::string_view name) {
  static unsigned counter = 0;
  std::string text = ".";
  text.append(name.substr(0, kLongestKeptName)).append(kRemovedInfix);
  return text + std::to_string(getpid()) + "-" + std::to_string(++counter);
}

bool isRemovedName(std::string_view entry, std::string_view name) {
  return !name.empty() && nameBeforeRemoval(entry) == name.substr(0, kLongestKeptName);
}

std::string pathBeforeRemoval(std::string_view path) {
  if (path.find(kRemovedInfix) == std::string_view::npos) return std::string(path);
  const auto [folder, name] = splitPath(path);
  const auto [folderAbove, folderName] = splitPath(folder);
  if (isRemovedName(folderName, name)) return stringByAppendingPathComponent(folderAbove, name);
  const std::string_view before = nameBeforeRemoval(name);
  return before.empty() ? std::string(path) : stringByAppendingPathComponent(folder, before);
}

}  // namespace clientcomm
