#include "ClientComm/platform/posix/io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

namespace clientcomm {

ssize_t readSome(int fd, void* buffer, std::size_t size) noexcept {
  ssize_t count = 0;
  do {
    count = read(fd, buffer, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

int readAll(int fd, std::size_t limit, std::string& bytes) {
  bytes.clear();
  std::array<char, 8192> chunk;
  for (;;) {
    const ssize_t count = readSome(fd, chunk.data(), chunk.size());
    if (count <= 0) return statusOf(static_cast<int>(count));
    if (static_cast<std::size_t>(count) > limit - bytes.size()) return EFBIG;
    bytes.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

int writeAll(int fd, const void* bytes, std::size_t size) noexcept {
  const auto* rest = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t written = write(fd, rest, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    rest += written;
    size -= static_cast<std::size_t>(written);
  }
  return 0;
}

int readRegularFile(int fd, std::size_t limit, std::string& bytes) {
  struct stat status;
  if (fstat(fd, &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if (status.st_size > static_cast<off_t>(limit)) return EFBIG;
  bytes.resize(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count =
        pread(fd, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return 0;
}

int flushData(int fd) {
  if (fdatasync(fd) == 0 || errno == EINVAL || errno == ENOSYS) return 0;
  return errno;
}

}  // namespace clientcomm
