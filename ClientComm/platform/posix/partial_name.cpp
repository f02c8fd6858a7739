#include "ClientComm/platform/posix/partial_name.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>

#include "ClientComm/platform/posix/directory_reader.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/partial_format.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

// The process that made the partial `entry`; 0 where it is none.
pid_t builderOf(std::string_view entry, std::string_view prefix) {
  if (!entry.starts_with(prefix)) return 0;
  entry.remove_prefix(prefix.size());
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(entry.data(), entry.data() + entry.size(), pid);
  if (error != std::errc() || end == entry.data() + entry.size() || *end != '-') return 0;
  return pid > 0 ? pid : 0;
}

}  // namespace

std::string partialPrefix(std::string_view name) {
  return std::string(".").append(name.substr(0, kLongestKeptName)).append(kPartialInfix);
}

std::string nextPartialName(std::string_view name) {
  static std::atomic<unsigned> counter = 0;  // an installation may copy on a thread of its own
  return partialPrefix(name) + std::to_string(getpid()) + "-" + std::to_string(++counter);
}

bool isPartial(std::string_view entry, std::string_view prefix) {
  return builderOf(entry, prefix) != 0;
}

bool isAbandonedPartial(std::string_view entry, std::string_view prefix) {
  const pid_t builder = builderOf(entry, prefix);
  return builder != 0 && kill(builder, 0) != 0 && errno == ESRCH;
}

void removeAbandonedPartialFiles(int directory, std::string_view name) {
  DirectoryReader entries(ScopedFd(openat(directory, ".", kDirectoryFlags)));
  if (!entries.isOpen()) return;
  const std::string prefix = partialPrefix(name);
  while (const dirent* entry = entries.next()) {
    if (isAbandonedPartial(entry->d_name, prefix)) discardFile(directory, entry->d_name);
  }
}

}  // namespace clientcomm
