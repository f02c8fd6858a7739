#include "ClientComm/platform/linux/process_ids.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <new>
#include <system_error>

#include "ClientComm/platform/linux/proc_path.h"

namespace clientcomm {

ProcessIDReader::ProcessIDReader() noexcept
    : directory_(open(kProcFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (!directory_.isValid()) error_ = errno;
}

pid_t ProcessIDReader::next() noexcept {
  while (position_ < filled_ || fill()) {
    // The kernel lays the entries out aligned, the name as the last member of each.
    const auto* const entry = std::launder(reinterpret_cast<const dirent64*>(buffer_ + position_));
    position_ += entry->d_reclen;
    pid_t pid = 0;
    const char* const end = entry->d_name + std::strlen(entry->d_name);
    const auto result = std::from_chars(entry->d_name, end, pid);
    if (result.ec == std::errc() && result.ptr == end && pid > 0) return pid;
  }
  return 0;
}

bool ProcessIDReader::fill() noexcept {
  if (error_ != 0) return false;
  const ssize_t length = getdents64(directory_.get(), buffer_, sizeof buffer_);
  if (length < 0) error_ = errno;
  position_ = 0;
  filled_ = length > 0 ? static_cast<std::size_t>(length) : 0;
  return filled_ > 0;
}

}  // namespace clientcomm
