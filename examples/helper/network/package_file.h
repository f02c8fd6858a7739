#pragma once

#include <glib.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "examples/helper/glib_owner.h"
#include "examples/helper/network/signed_feed.h"
#include "examples/helper/scoped_fd.h"

namespace sample {

/// The file of a package, in the folder `folder`, under its SHA-256. It takes that name only once
/// its length and its sum are those of the feed.
std::string packagePath(const std::string& folder, const UpgradePackage& package);

/// A package on its way in.
class PackageWriter {
 public:
  /// @throws FileError.
  PackageWriter(std::string folder, UpgradePackage package);
  ~PackageWriter();
  PackageWriter(const PackageWriter&) = delete;
  PackageWriter& operator=(const PackageWriter&) = delete;

  /// @return false when there are more bytes than the feed says. @throws FileError.
  bool take(std::string_view bytes);
  /// Puts the file in its place. @throws FeedError where it is not the one of the feed, FileError.
  void finish();

 private:
  std::string folder_;
  UpgradePackage package_;
  std::string partial_;
  ScopedFd file_;
  GChecksumPtr checksum_;
  std::int64_t size_ = 0;
};

/// Reads a package piece by piece from the main loop and tells whether it still is the one of the
/// feed.
class PackageCheck {
 public:
  using Done = std::function<void(bool isGood)>;
  /// `done` is called later, once; it may destroy the check.
  PackageCheck(const std::string& path, UpgradePackage package, Done done);
  ~PackageCheck();
  PackageCheck(const PackageCheck&) = delete;
  PackageCheck& operator=(const PackageCheck&) = delete;

 private:
  bool work();
  void end(bool isGood);

  UpgradePackage package_;
  Done done_;
  ScopedFd file_;
  GChecksumPtr checksum_;
  std::string buffer_;
  std::int64_t size_ = 0;
  guint source_ = 0;
};

}  // namespace sample
