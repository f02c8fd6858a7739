#include "ClientComm/platform/posix/io.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "ClientComm/platform/reporter.h"

namespace clientcomm {

ssize_t readSome(int fd, void* buffer, std::size_t size) noexcept {
  ssize_t count = 0;
  do {
    count = read(fd, buffer, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

Status readAll(int fd, std::size_t limit, std::string& bytes) {
  bytes.clear();
  std::array<char, 8192> chunk;
  for (;;) {
    const ssize_t count = readSome(fd, chunk.data(), chunk.size());
    if (count <= 0) return fileStatus(count, "read");
    const auto size = static_cast<std::size_t>(count);
    if (size > limit - bytes.size()) return Status::ofFile(EFBIG, "read");
    bytes.append(chunk.data(), size);
  }
}

Status writeAll(int fd, const void* bytes, std::size_t size) noexcept {
  const auto* rest = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t written = write(fd, rest, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return fileStatus(written, "write");
    rest += written;
    size -= static_cast<std::size_t>(written);
  }
  return {};
}

Status readRegularFile(int fd, std::size_t limit, std::string& bytes) {
  struct stat status;
  if (fstat(fd, &status) != 0) return Status::ofFile(errno, "fstat");
  if (!S_ISREG(status.st_mode)) return Status::ofFile(EINVAL, "isRegularFile");
  if (status.st_size > static_cast<off_t>(limit)) return Status::ofFile(EFBIG, "fstat");
  bytes.resize(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count =
        pread(fd, bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return fileStatus(count, "pread");
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return {};
}

void discardFile(int folder, const char* name) noexcept {
  if (unlinkat(folder, name, 0) == 0 || errno == ENOENT) return;
  report(DiagnosticCause::kRuntimeFileNotRemoved, name, "unlinkat", errno);
}

Status flushData(int fd) noexcept {
  if (fdatasync(fd) == 0 || errno == EINVAL || errno == ENOSYS) return {};
  return Status::ofFile(errno, "fdatasync");
}

}  // namespace clientcomm
