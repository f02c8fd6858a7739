#include "examples/helper/network/signed_feed.h"

#include <glib.h>
#include <sodium.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "examples/helper/durable_file.h"
#include "examples/helper/glib_owner.h"

namespace sample {
namespace {

using nlohmann::json;

constexpr std::int64_t kFormat = 1;
constexpr std::size_t kSha256Digits = 64;

[[noreturn]] void failUnreadable(const std::string& text) {
  throw FeedError(FeedFault::kUnreadable, "the upgrade feed cannot be read: " + text);
}

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string decodedKey(const std::string& base64) {
  gsize length = 0;
  const GTextPtr bytes(reinterpret_cast<gchar*>(g_base64_decode(base64.c_str(), &length)));
  return {bytes.get(), length};
}

void verify(const std::string& bytes, const std::string& signature, const std::string& publicKey) {
  const std::string key = decodedKey(publicKey);
  const bool isSigned = sodium_init() >= 0 && key.size() == crypto_sign_PUBLICKEYBYTES &&
                        signature.size() == crypto_sign_BYTES &&
                        crypto_sign_verify_detached(bytesOf(signature), bytesOf(bytes),
                                                    bytes.size(), bytesOf(key)) == 0;
  if (!isSigned) {
    throw FeedError(FeedFault::kSignature, "the upgrade feed is not signed by its publisher");
  }
}

// In seconds since 1970.
std::int64_t timeFrom(const std::string& text) {
  struct Unref {
    void operator()(GDateTime* time) const noexcept { g_date_time_unref(time); }
  };
  // Without a time zone of its own it is in UTC.
  const std::unique_ptr<GTimeZone, void (*)(GTimeZone*)> utc(g_time_zone_new_utc(),
                                                             g_time_zone_unref);
  const std::unique_ptr<GDateTime, Unref> time(
      g_date_time_new_from_iso8601(text.c_str(), utc.get()));
  if (!time) failUnreadable("\"expires\" is no time");
  return g_date_time_to_unix(time.get());
}

UpgradePackage packageFrom(const json& entry) {
  UpgradePackage package;
  package.url = entry.at("url").get<std::string>();
  package.size = entry.at("size").get<std::int64_t>();
  package.sha256 = entry.at("sha256").get<std::string>();
  const bool isSum = package.sha256.size() == kSha256Digits &&
                     package.sha256.find_first_not_of("0123456789abcdef") == std::string::npos;
  if (!isSum || package.size < 0) failUnreadable("a package has no valid size or SHA-256");
  return package;
}

}  // namespace

SignedFeed::SignedFeed(std::string bytes, std::string signature, const std::string& publicKey)
    : bytes_(std::move(bytes)), signature_(std::move(signature)) {
  verify(bytes_, signature_, publicKey);
  try {
    const json feed = json::parse(bytes_);
    if (feed.at("format").get<std::int64_t>() != kFormat) failUnreadable("unknown format");
    sequence_ = feed.at("sequence").get<std::int64_t>();
    expires_ = timeFrom(feed.at("expires").get<std::string>());
    products_ = feed.at("products");
    if (!products_.is_object()) failUnreadable("\"products\" is no object");
  } catch (const json::exception& error) {
    failUnreadable(error.what());
  }
}

std::optional<FeedEntry> SignedFeed::entryFor(const std::string& productID) const {
  const auto found = products_.find(productID);
  if (found == products_.end()) return std::nullopt;
  FeedEntry entry;
  try {
    if (found->contains("error")) {
      entry.code = found->at("error").at("code").get<std::int32_t>();
      entry.description = found->at("error").at("description").get<std::string>();
    } else {
      entry.version = found->at("version").get<std::string>();
      if (found->contains("url")) entry.package = packageFrom(*found);
    }
  } catch (const json::exception& error) {
    failUnreadable(error.what());
  }
  return entry;
}

FeedStore::FeedStore(std::string folder, std::string publicKey)
    : folder_(std::move(folder)), publicKey_(std::move(publicKey)) {}

void FeedStore::accept(const SignedFeed& feed) {
  if (feed.isExpired(g_get_real_time() / G_USEC_PER_SEC)) {
    throw FeedError(FeedFault::kExpired, "the upgrade feed has expired");
  }
  const auto known = newest();
  if (known && feed.bytes() == known->bytes()) return;
  if (known && feed.sequence() <= known->sequence()) {
    throw FeedError(FeedFault::kReplay, "the upgrade feed is older than one seen before");
  }
  makeFolder(folder_);
  writeFileDurably(path(), feed.signature() + feed.bytes());
}

// A file that is damaged counts as none: it protects from servers, not from the user's programs.
std::optional<SignedFeed> FeedStore::newest() const {
  try {
    const std::string stored = readFile(path());
    const std::size_t head = std::min<std::size_t>(stored.size(), crypto_sign_BYTES);
    return SignedFeed(stored.substr(head), stored.substr(0, head), publicKey_);
  } catch (const FileError&) {
    return std::nullopt;
  } catch (const FeedError&) {
    return std::nullopt;
  }
}

}  // namespace sample
