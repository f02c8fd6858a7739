#include "ClientComm/platform/linux/runtime_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

constexpr std::size_t kLongestRecord = std::size_t{256} * 1024;

std::optional<std::string> readAll(int file) {
  std::string text;
  std::array<char, 4096> chunk;
  for (;;) {
    const ssize_t count = read(file, chunk.data(), chunk.size());
    if (count == 0) return text;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 || text.size() > kLongestRecord) return std::nullopt;
    text.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

bool writeAll(int file, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t count = write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

std::optional<std::string> readRuntimeFile(int folder, const std::string& name) {
  const ScopedFd file(openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.isValid() || fstat(file.get(), &status) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) return std::nullopt;
  return readAll(file.get());
}

bool replaceRuntimeFile(int folder, const std::string& name, std::string_view bytes) {
  const std::string draft = name + std::string(kDraftSuffix);
  unlinkat(folder, draft.c_str(), 0);
  const ScopedFd file(
      openat(folder, draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file.isValid()) return false;
  if (writeAll(file.get(), bytes) && renameat(folder, draft.c_str(), folder, name.c_str()) == 0) {
    return true;
  }
  unlinkat(folder, draft.c_str(), 0);
  return false;
}

bool createRuntimeFile(int folder, const std::string& name, std::string_view bytes) {
  const ScopedFd file(
      openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  return file.isValid() && writeAll(file.get(), bytes);
}

}  // namespace clientcomm
