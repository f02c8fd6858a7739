#include "ClientComm/platform/linux/executable_link.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "ClientComm/platform/linux/local_file.h"

namespace clientcomm {
ExecutableLink ExecutableLink::ofDescriptor(int descriptor) noexcept {
  ExecutableLink link(ProcPath::ofDescriptor(descriptor));
  if (link.error_ != 0) return link;
  const auto status = statusWithoutWaiting(descriptor, "");
  if (!status || !S_ISREG(status->stx_mode)) link.error_ = EINVAL;
  return link;
}

bool ExecutableLink::isWithheld() const noexcept { return error_ == EACCES || error_ == EPERM; }

bool ExecutableLink::isMarkedAsRemoved() const noexcept { return target().ends_with(kRemovedMark); }

bool ExecutableLink::isRemoved() const {
  if (!isMarkedAsRemoved()) return false;
  const LocalFile file = openLocalFile(target());
  if (file.access != LocalAccess::kOpen) return true;
  const auto named = statusWithoutWaiting(file.file.get(), "");
  return !named || !leadsTo(*named);
}

bool ExecutableLink::leadsTo(const struct statx& file) const noexcept {
  const auto linked = statusWithoutWaiting(AT_FDCWD, link_.c_str());
  return linked && file.stx_ino == linked->stx_ino && file.stx_dev_major == linked->stx_dev_major &&
         file.stx_dev_minor == linked->stx_dev_minor;
}

ExecutableLink::ExecutableLink(const ProcPath& link) noexcept : link_(link) {
  const ssize_t length = readlink(link_.c_str(), target_.data(), target_.size() - 1);
  if (length < 0) error_ = errno;
  length_ = length < 0 ? 0 : static_cast<std::size_t>(length);
  target_[length_] = '\0';
}

}  // namespace clientcomm
