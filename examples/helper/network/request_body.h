#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "examples/helper/glib_owner.h"
#include "examples/helper/scoped_fd.h"

namespace sample {

/// What a request sends. It is read from its beginning to its end, and again when the connection
/// has to be made anew.
class RequestBody {
 public:
  virtual ~RequestBody() = default;
  virtual std::int64_t size() const = 0;
  /// Puts the next bytes, `count` at most, into `buffer`. @return how many; 0 at the end.
  /// @throws FileError.
  virtual std::size_t read(char* buffer, std::size_t count) = 0;
  /// Goes back to the beginning.
  virtual void rewind() = 0;
};

class TextBody final : public RequestBody {
 public:
  explicit TextBody(std::string text) : text_(std::move(text)) {}
  std::int64_t size() const override { return static_cast<std::int64_t>(text_.size()); }
  std::size_t read(char* buffer, std::size_t count) override;
  void rewind() override { position_ = 0; }

 private:
  std::string text_;
  std::size_t position_ = 0;
};

/// A piece of a file, and the SHA-256 of what was read of it.
class FilePartBody final : public RequestBody {
 public:
  /// @throws FileError.
  FilePartBody(std::string path, std::int64_t offset, std::int64_t size);
  std::int64_t size() const override { return size_; }
  std::size_t read(char* buffer, std::size_t count) override;
  void rewind() override;

  /// Hexadecimal; of the whole piece once it was read to its end, which ends the reading.
  std::string sha256() const { return g_checksum_get_string(checksum_.get()); }

 private:
  std::string path_;
  ScopedFd file_;
  std::int64_t offset_;
  std::int64_t size_;
  std::int64_t position_ = 0;
  GChecksumPtr checksum_;
};

}  // namespace sample
