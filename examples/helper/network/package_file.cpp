#include "examples/helper/network/package_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "examples/helper/durable_file.h"

namespace sample {
namespace {

constexpr std::size_t kPieceInBytes = 1 << 20;

const guchar* bytesOf(std::string_view bytes) {
  return reinterpret_cast<const guchar*>(bytes.data());
}

}  // namespace

std::string packagePath(const std::string& folder, const UpgradePackage& package) {
  return folder + "/" + package.sha256;
}

PackageWriter::PackageWriter(std::string folder, UpgradePackage package)
    : folder_(std::move(folder)),
      package_(std::move(package)),
      partial_(folder_ + "/" + kPartialPrefix + package_.sha256),
      checksum_(g_checksum_new(G_CHECKSUM_SHA256)) {
  makeFolder(folder_);
  unlink(partial_.c_str());
  file_ = ScopedFd(open(partial_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0700));
  if (!file_.isValid()) throw FileError("cannot create " + partial_ + ": " + std::strerror(errno));
}

PackageWriter::~PackageWriter() { unlink(partial_.c_str()); }

bool PackageWriter::take(std::string_view bytes) {
  size_ += static_cast<std::int64_t>(bytes.size());
  if (size_ > package_.size) return false;
  writeAll(file_.get(), bytes, partial_);
  g_checksum_update(checksum_.get(), bytesOf(bytes), static_cast<gssize>(bytes.size()));
  return true;
}

void PackageWriter::finish() {
  if (size_ != package_.size || package_.sha256 != g_checksum_get_string(checksum_.get())) {
    throw FeedError(FeedFault::kPackage, "the upgrade is not the one that the feed describes");
  }
  flush(file_.get(), partial_);
  file_.reset();  // a file that is open for writing cannot be run
  renameDurably(partial_, packagePath(folder_, package_));
}

PackageCheck::PackageCheck(const std::string& path, UpgradePackage package, Done done)
    : package_(std::move(package)),
      done_(std::move(done)),
      file_(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)),
      checksum_(g_checksum_new(G_CHECKSUM_SHA256)),
      buffer_(kPieceInBytes, '\0') {
  const GSourceFunc readOn = [](gpointer self) -> gboolean {
    return static_cast<PackageCheck*>(self)->work() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
  };
  source_ = g_idle_add_full(G_PRIORITY_LOW, readOn, this, nullptr);
}

PackageCheck::~PackageCheck() {
  if (source_ != 0) g_source_remove(source_);
}

bool PackageCheck::work() {
  const ssize_t count = read(file_.get(), buffer_.data(), buffer_.size());
  if (count < 0 && errno == EINTR) return true;
  if (count > 0) {
    size_ += count;
    g_checksum_update(checksum_.get(), bytesOf(buffer_), count);
    if (size_ <= package_.size) return true;
  }
  source_ = 0;
  end(count == 0 && size_ == package_.size &&
      package_.sha256 == g_checksum_get_string(checksum_.get()));
  return false;
}

void PackageCheck::end(bool isGood) {
  const Done done = std::move(done_);
  done(isGood);  // may destroy this
}

}  // namespace sample
