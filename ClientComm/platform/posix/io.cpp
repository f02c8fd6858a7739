#include "ClientComm/platform/posix/io.h"

#include <sys/stat.h>
#include <unistd.h>

namespace clientcomm {

int writeAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, bytes, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    bytes += written;
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
