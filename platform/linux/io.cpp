#include "platform/linux/io.h"

#include <unistd.h>

namespace platform {

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

}  // namespace platform
