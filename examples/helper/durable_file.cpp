#include "examples/helper/durable_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ClientComm/platform/file_manager.h"
#include "examples/helper/scoped_fd.h"

namespace sample {
namespace {

[[noreturn]] void fail(const std::string& action, const std::string& path) {
  throw FileError(action + " " + path + ": " + std::strerror(errno));
}

std::string partialNameFor(const std::string& path) {
  const std::filesystem::path target(path);
  return target.parent_path().string() + "/" + kPartialPrefix + target.filename().string() + "-" +
         std::to_string(getpid());
}

ScopedFd createFile(const std::string& path) {
  ScopedFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file.isValid()) fail("cannot create", path);
  return file;
}

}  // namespace

void makeFolder(const std::string& path) {
  if (const auto error = clientcomm::createDirectoryAtPath(path)) {
    errno = static_cast<int>(error->code);
    fail("cannot make", path);
  }
}

void writeFileDurably(const std::string& path, std::string_view bytes) {
  const std::string partial = partialNameFor(path);
  {
    const ScopedFd file = createFile(partial);
    writeAll(file.get(), bytes, partial);
    flush(file.get(), partial);
  }
  renameDurably(partial, path);
}

void replaceFile(const std::string& path, std::string_view bytes) {
  const std::string partial = partialNameFor(path);
  writeAll(createFile(partial).get(), bytes, partial);
  if (std::rename(partial.c_str(), path.c_str()) != 0) fail("cannot rename to", path);
}

void renameDurably(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) fail("cannot rename to", to);
  const std::string folder = std::filesystem::path(to).parent_path().string();
  const ScopedFd parent(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parent.isValid()) fail("cannot open", folder);
  flush(parent.get(), folder);
}

void writeAll(int descriptor, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("cannot write", path);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void flush(int descriptor, const std::string& path) {
  // A file system that cannot flush a folder says EINVAL; there is nothing more to do then.
  if (fsync(descriptor) != 0 && errno != EINVAL) fail("cannot flush", path);
}

std::string readFile(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    errno = error ? error.value() : EINVAL;
    fail("cannot read", path);
  }
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  if (file.bad() || !file.is_open()) fail("cannot read", path);
  return bytes;
}

}  // namespace sample
