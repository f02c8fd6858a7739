#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace sample {

/// Why an upgrade cannot be offered. Hosts are told the number.
enum class FeedFault {
  kUnreadable = 100,
  kUnreachable = 101,
  kSignature = 102,
  kReplay = 103,
  kExpired = 104,
  kPackage = 105,
};

class FeedError : public std::runtime_error {
 public:
  FeedError(FeedFault fault, const std::string& text) : std::runtime_error(text), fault_(fault) {}
  FeedFault fault() const noexcept { return fault_; }

 private:
  FeedFault fault_;
};

/// What an upgrade is made with.
struct UpgradePackage {
  std::string url;  ///< Absolute, or relative to the folder of the feed.
  std::int64_t size = 0;
  std::string sha256;  ///< 64 hexadecimal digits, lower case.
};

/// What the feed says of one product: a version, or a code other than 0 and its description.
struct FeedEntry {
  std::string version;
  std::optional<UpgradePackage> package;
  std::int32_t code = 0;
  std::string description;
};

/// An upgrade feed whose signature is good. docs/shipping-a-helper.md describes the format.
class SignedFeed {
 public:
  /// Verifies the signature before it reads anything of the feed.
  /// @param signature 64 bytes, Ed25519 over `bytes`. @param publicKey 32 bytes in base64.
  /// @throws FeedError.
  SignedFeed(std::string bytes, std::string signature, const std::string& publicKey);

  const std::string& bytes() const noexcept { return bytes_; }
  const std::string& signature() const noexcept { return signature_; }
  /// Each feed has a greater number than those before it.
  std::int64_t sequence() const noexcept { return sequence_; }
  /// @param now seconds since 1970.
  bool isExpired(std::int64_t now) const { return now >= expires_; }

  /// @return nothing where the feed does not name the product. @throws FeedError.
  std::optional<FeedEntry> entryFor(const std::string& productID) const;

 private:
  std::string bytes_;
  std::string signature_;
  nlohmann::json products_;
  std::int64_t sequence_ = 0;
  std::int64_t expires_ = 0;
};

/// The newest feed that was accepted, in a file. Its number is what keeps out older ones.
class FeedStore {
 public:
  FeedStore(std::string folder, std::string publicKey);

  /// Accepts a feed that is valid now and not older than the newest one, and keeps it.
  /// @throws FeedError, FileError.
  void accept(const SignedFeed& feed);

  /// The newest feed; nothing where there is none whose signature is good.
  std::optional<SignedFeed> newest() const;

 private:
  std::string path() const { return folder_ + "/signed.feed"; }

  std::string folder_;
  std::string publicKey_;
};

}  // namespace sample
