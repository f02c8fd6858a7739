#include "ClientComm/platform/linux/executable_link.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "ClientComm/platform/linux/local_file.h"

namespace clientcomm {
namespace {

constexpr std::string_view kDeletedSuffix = " (deleted)";

}  // namespace

ExecutableLink ExecutableLink::ofDescriptor(int descriptor) noexcept {
  ExecutableLink link("/proc/self/fd/", descriptor, "");
  if (link.error_ != 0) return link;
  const auto status = statusWithoutWaiting(descriptor, "");
  if (!status || !S_ISREG(status->stx_mode)) link.error_ = EINVAL;
  return link;
}

bool ExecutableLink::isWithheld() const noexcept { return error_ == EACCES || error_ == EPERM; }

bool ExecutableLink::isMarkedAsRemoved() const noexcept {
  return target().ends_with(kDeletedSuffix);
}

bool ExecutableLink::isRemoved() const {
  if (!isMarkedAsRemoved()) return false;
  const LocalFile file = openLocalFile(target());
  if (file.access != LocalAccess::kOpen) return true;
  const auto named = statusWithoutWaiting(file.file.get(), "");
  return !named || !leadsTo(*named);
}

bool ExecutableLink::leadsTo(const struct statx& file) const noexcept {
  const auto linked = statusWithoutWaiting(AT_FDCWD, link_.data());
  return linked && file.stx_ino == linked->stx_ino && file.stx_dev_major == linked->stx_dev_major &&
         file.stx_dev_minor == linked->stx_dev_minor;
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

}  // namespace clientcomm
