#include "examples/helper/delivery_in_progress.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "examples/helper/durable_file.h"
#include "examples/helper/json_text.h"
#include "examples/helper/text.h"

namespace sample {
namespace {

// Small enough that a host's query waits a few milliseconds at most.
constexpr std::size_t kPieceInBytes = 1 << 20;

}  // namespace

DeliveryInProgress::DeliveryInProgress(Delivery delivery, std::string outbox)
    : delivery_(std::move(delivery)),
      outbox_(std::move(outbox)),
      partialFolder_(outbox_ + "/" + kPartialPrefix + delivery_.name) {
  std::error_code ignored;
  std::filesystem::remove_all(partialFolder_, ignored);
  makeFolder(partialFolder_);
  if (!delivery_.path.empty()) openSource();
}

// Whatever is wrong with the host's file goes into the record; it must not stop the deliveries
// behind it. Opened without blocking, because a pipe without a writer would wait for one.
void DeliveryInProgress::openSource() {
  if (delivery_.path.front() != '/') {
    error_ = "the path is not absolute";
    return;
  }
  source_ = ScopedFd(open(delivery_.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (delivery_.path.find('\0') != std::string::npos) {
    error_ = "the path holds a NUL";
  } else if (!source_.isValid() || fstat(source_.get(), &status) != 0) {
    error_ = std::strerror(errno);
  } else if (!S_ISREG(status.st_mode)) {
    error_ = "not a regular file";
  }
  if (!error_.empty()) {
    source_.reset();
    return;
  }
  const std::string path = partialFolder_ + "/content";
  content_ = ScopedFd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!content_.isValid()) throw FileError("cannot create " + path + ": " + std::strerror(errno));
  checksum_.reset(g_checksum_new(G_CHECKSUM_SHA256));
  buffer_.resize(kPieceInBytes);
  // A log that grows while it is copied ends where it ended when the copy began.
  remaining_ = status.st_size;
}

bool DeliveryInProgress::work() {
  if (source_.isValid() && remaining_ > 0 && copyPiece()) return true;
  finish();
  return false;
}

bool DeliveryInProgress::copyPiece() {
  const auto wanted = std::min(remaining_, static_cast<std::int64_t>(buffer_.size()));
  const ssize_t count = read(source_.get(), buffer_.data(), static_cast<std::size_t>(wanted));
  if (count < 0) {
    if (errno == EINTR) return true;
    error_ = std::strerror(errno);
  }
  if (count <= 0) return false;
  const auto* const bytes = reinterpret_cast<const char*>(buffer_.data());
  writeAll(content_.get(), {bytes, static_cast<std::size_t>(count)}, partialFolder_);
  g_checksum_update(checksum_.get(), buffer_.data(), count);
  size_ += count;
  remaining_ -= count;
  return true;
}

void DeliveryInProgress::finish() {
  if (content_.isValid()) flush(content_.get(), partialFolder_);
  writeFileDurably(partialFolder_ + "/record.json", jsonText(record()));
  renameDurably(partialFolder_, outbox_ + "/" + delivery_.name);
}

nlohmann::json DeliveryInProgress::record() const {
  nlohmann::json record = {{"kind", delivery_.kind},
                           {"bundleIdentifier", delivery_.bundleID},
                           {"productID", delivery_.productID},
                           {"version", delivery_.version},
                           {"email", delivery_.email},
                           {"title", delivery_.title},
                           {"description", delivery_.description},
                           {"path", delivery_.path},
                           {"taken", delivery_.taken}};
  if (!g_utf8_validate(delivery_.path.data(), static_cast<gssize>(delivery_.path.size()),
                       nullptr)) {
    record["pathBytes"] = hexadecimal(delivery_.path);
  }
  if (!error_.empty()) {
    record["error"] = error_;
  }
  if (content_.isValid()) {
    record["size"] = size_;
    record["sha256"] = g_checksum_get_string(checksum_.get());
  }
  return record;
}

}  // namespace sample
