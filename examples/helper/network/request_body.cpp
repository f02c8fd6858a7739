#include "examples/helper/network/request_body.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "examples/helper/durable_file.h"

namespace sample {

std::size_t TextBody::read(char* buffer, std::size_t count) {
  const std::size_t taken = text_.copy(buffer, count, position_);
  position_ += taken;
  return taken;
}

FilePartBody::FilePartBody(std::string path, std::int64_t offset, std::int64_t size)
    : path_(std::move(path)),
      file_(open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC)),
      offset_(offset),
      size_(size),
      checksum_(g_checksum_new(G_CHECKSUM_SHA256)) {
  if (!file_.isValid()) throw FileError("cannot open " + path_ + ": " + std::strerror(errno));
}

std::size_t FilePartBody::read(char* buffer, std::size_t count) {
  const auto wanted = std::min(count, static_cast<std::size_t>(size_ - position_));
  if (wanted == 0) return 0;
  ssize_t got = 0;
  do {
    got = pread(file_.get(), buffer, wanted, offset_ + position_);
  } while (got < 0 && errno == EINTR);
  if (got < 0) throw FileError("cannot read " + path_ + ": " + std::strerror(errno));
  if (got == 0) throw FileError(path_ + " has become shorter");
  g_checksum_update(checksum_.get(), reinterpret_cast<const guchar*>(buffer), got);
  position_ += got;
  return static_cast<std::size_t>(got);
}

void FilePartBody::rewind() {
  position_ = 0;
  g_checksum_reset(checksum_.get());
}

}  // namespace sample
