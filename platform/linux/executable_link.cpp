#include "platform/linux/executable_link.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

namespace platform {
namespace {

constexpr std::string_view kDeletedSuffix = " (deleted)";

}  // namespace

ExecutableLink ExecutableLink::ofDescriptor(int descriptor) noexcept {
  ExecutableLink link("/proc/self/fd/", descriptor, "");
  struct stat linked = {};
  if (link.error_ == 0 && (fstat(descriptor, &linked) != 0 || !S_ISREG(linked.st_mode))) {
    link.error_ = EINVAL;
  }
  return link;
}

bool ExecutableLink::isRemoved() const noexcept {
  if (!target().ends_with(kDeletedSuffix)) return false;
  struct stat named = {};
  struct stat linked = {};
  return stat(target_.data(), &named) != 0 || stat(link_.data(), &linked) != 0 ||
         named.st_dev != linked.st_dev || named.st_ino != linked.st_ino;
}

ExecutableLink::ExecutableLink(std::string_view before, int number,
                               std::string_view after) noexcept {
  char* end = std::copy(before.begin(), before.end(), link_.data());
  end = std::to_chars(end, link_.data() + link_.size(), number).ptr;
  *std::copy(after.begin(), after.end(), end) = '\0';
  const ssize_t length = readlink(link_.data(), target_.data(), target_.size() - 1);
  if (length < 0) error_ = errno;
  length_ = length < 0 ? 0 : static_cast<std::size_t>(length);
  target_[length_] = '\0';
}

}  // namespace platform
