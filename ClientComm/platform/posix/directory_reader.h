#pragma once

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

/// The entries of an open directory, without "." and "..".
class DirectoryReader {
 public:
  // `errno` tells why a reader is not open, as it does for the descriptor.
  explicit DirectoryReader(ScopedFd fd) : stream_(fd.isValid() ? fdopendir(fd.get()) : nullptr) {
    if (stream_) static_cast<void>(fd.release());
  }
  bool isOpen() const { return stream_ != nullptr; }
  int fd() const { return dirfd(stream_.get()); }
  void rewind() { rewinddir(stream_.get()); }

  // Null at the end, with errno 0, and on failure.
  const dirent* next() {
    for (;;) {
      errno = 0;
      const dirent* entry = readdir(stream_.get());
      if (entry == nullptr) return nullptr;
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") return entry;
    }
  }

 private:
  struct Close {
    void operator()(DIR* stream) const { closedir(stream); }
  };
  std::unique_ptr<DIR, Close> stream_;
};

}  // namespace clientcomm
