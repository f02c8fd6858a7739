#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "examples/helper/glib_owner.h"
#include "examples/helper/journal.h"
#include "examples/helper/scoped_fd.h"

namespace sample {

/// One delivery on its way into the outbox: its file is copied piece by piece into a folder beside
/// the final one, which takes the final name when it is complete.
class DeliveryInProgress {
 public:
  /// Begins in a new partial folder. @throws FileError.
  DeliveryInProgress(Delivery delivery, std::string outbox);

  const Delivery& delivery() const noexcept { return delivery_; }

  /// The bytes that are copied already, and those of the whole file.
  std::int64_t copied() const noexcept { return size_; }
  std::int64_t size() const noexcept { return size_ + remaining_; }

  /// Copies the next piece. @return false when the folder stands complete in the outbox.
  /// @throws FileError when the outbox cannot be written; nothing is in the outbox then.
  bool work();

 private:
  void openSource();
  bool copyPiece();
  void finish();
  nlohmann::json record() const;

  Delivery delivery_;
  std::string outbox_;
  std::string partialFolder_;
  ScopedFd source_;
  ScopedFd content_;
  GChecksumPtr checksum_;
  std::vector<unsigned char> buffer_;
  std::int64_t remaining_ = 0;
  std::int64_t size_ = 0;
  std::string error_;
};

}  // namespace sample
