#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace sample {

/// How connections are made.
struct TransportSettings {
  /// PEM file of the certificate authorities to trust; empty for those of the system.
  std::string certificateFile;
  /// Folder of such files, as OpenSSL names them; used beside `certificateFile`.
  std::string certificateFolder;
  /// Empty for the one that the environment names, if any.
  std::string proxy;
  /// A transfer that stands still, or crawls, for so long has failed.
  std::chrono::seconds stallLimit{60};
};

/// How often something that failed is tried again.
struct RetrySettings {
  std::chrono::milliseconds first{5'000};
  std::chrono::milliseconds longest{3'600'000};
};

struct UploadSettings {
  /// Folder on the server, without a slash at its end; empty for no uploads.
  std::string url;
  /// Largest piece that is sent in one request, in bytes.
  std::int64_t partSize = 4 << 20;
};

struct FeedSettings {
  /// Of the feed; its signature is at the same address with ".sig". Empty for no feed.
  std::string url;
  /// Ed25519, 32 bytes in base64. From the Info dictionary only.
  std::string publicKey;
};

struct NetworkSettings {
  TransportSettings transport;
  RetrySettings retry;
  UploadSettings uploads;
  FeedSettings feed;
};

/// Reads the settings: each from the helper's preferences, else from its Info dictionary, else the
/// default above. A value that makes no sense counts as absent.
NetworkSettings readNetworkSettings();

}  // namespace sample
