#include "ClientComm/platform/linux/process_text.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/posix/removed_name.h"

namespace clientcomm {
namespace {

// The number `count` fields after the command's name. The name, in brackets, may hold blanks and
// brackets itself.
template <typename Number>
std::optional<Number> numberAfterCommand(std::string_view stat, int count) noexcept {
  stat.remove_prefix(std::min(stat.rfind(')'), stat.size()));
  for (int i = 0; i < count; ++i) {
    const auto blank = stat.find(' ');
    if (blank == std::string_view::npos) return std::nullopt;
    stat.remove_prefix(blank + 1);
  }
  Number number = 0;
  const auto result = std::from_chars(stat.data(), stat.data() + stat.size(), number);
  return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> startTimeInStat(std::string_view stat) noexcept {
  return numberAfterCommand<std::uint64_t>(stat, 20);
}

std::int32_t parentInStat(std::string_view stat) noexcept {
  return numberAfterCommand<std::int32_t>(stat, 2).value_or(0);
}

bool mayHaveInnerPID(std::string_view status) noexcept {
  constexpr std::string_view kIDs = "\nNSpid:\t";
  const auto start = status.find(kIDs);
  if (start == std::string_view::npos) return true;
  const std::string_view rest = status.substr(start + kIDs.size());
  return rest.substr(0, rest.find('\n')).find('\t') != std::string_view::npos;
}

void copyCommandName(std::string_view comm, char (&name)[kMaximumCommandLength + 1]) noexcept {
  if (comm.ends_with('\n')) comm.remove_suffix(1);
  name[comm.copy(name, kMaximumCommandLength)] = '\0';
}

std::string_view bundleOfExecutable(std::string_view path) noexcept {
  if (!path.starts_with('/')) return {};
  path = folderOfExecutable(path);
  std::string_view name = path.substr(path.rfind('/') + 1);
  if (const std::string_view before = nameBeforeRemoval(name); !before.empty()) name = before;
  return isApplicationPath(name) ? path : std::string_view();
}

}  // namespace clientcomm
