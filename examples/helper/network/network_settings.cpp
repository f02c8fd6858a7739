#include "examples/helper/network/network_settings.h"

#include <glib.h>

#include <cmath>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/user_defaults.h"

namespace sample {
namespace {

constexpr std::string_view kScheme = "https://";

std::string setting(const char* key) {
  const auto preferred = clientcomm::UserDefaults::standardUserDefaults().stringForKey(key);
  if (preferred && !preferred->empty()) return *preferred;
  return clientcomm::Bundle::mainBundle().infoString(key).value_or("");
}

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// The number of the setting `key`, where it is one from `least` to `most`.
std::optional<double> number(const char* key, double least, double most) {
  const std::string text = setting(key);
  char* end = nullptr;
  const double value = g_ascii_strtod(text.c_str(), &end);
  const bool isNumber = !text.empty() && *end == '\0' && std::isfinite(value);
  if (!isNumber || value < least || value > most) return std::nullopt;
  return value;
}

std::chrono::milliseconds milliseconds(double seconds) {
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

std::string secureAddress(const char* key) {
  std::string url = setting(key);
  if (url.empty()) return url;
  if (g_ascii_strncasecmp(url.c_str(), kScheme.data(), kScheme.size()) != 0) {
    g_warning("%s is ignored: it does not begin with %s", key, kScheme.data());
    return "";
  }
  while (url.ends_with('/')) url.pop_back();
  return url;
}

TransportSettings readTransport() {
  TransportSettings transport;
  transport.proxy = setting("ProxyURL");
  transport.certificateFile = setting("CertificateFile");
  if (transport.certificateFile.empty()) {
    transport.certificateFile = environment("CURL_CA_BUNDLE");
    if (transport.certificateFile.empty()) {
      transport.certificateFile = environment("SSL_CERT_FILE");
    }
    transport.certificateFolder = environment("SSL_CERT_DIR");
  } else if (transport.certificateFile.front() != '/') {
    transport.certificateFile = clientcomm::Bundle::mainBundle().bundlePath() +
                                "/Contents/Resources/" + transport.certificateFile;
  }
  if (const auto limit = number("StallSeconds", 1, 3600)) {
    transport.stallLimit = std::chrono::seconds(std::llround(*limit));
  }
  return transport;
}

RetrySettings readRetry() {
  RetrySettings retry;
  if (const auto first = number("RetrySeconds", 0.001, 86'400)) retry.first = milliseconds(*first);
  if (const auto longest = number("RetryLimitSeconds", 0.001, 86'400)) {
    retry.longest = milliseconds(*longest);
  }
  return retry;
}

}  // namespace

NetworkSettings readNetworkSettings() {
  NetworkSettings settings;
  settings.transport = readTransport();
  settings.retry = readRetry();
  settings.uploads.url = secureAddress("UploadURL");
  if (const auto size = number("UploadPartBytes", 1, 1 << 30)) {
    settings.uploads.partSize = std::llround(*size);
  }
  settings.feed.url = secureAddress("FeedURL");
  settings.feed.publicKey =
      clientcomm::Bundle::mainBundle().infoString("FeedPublicKey").value_or("");
  return settings;
}

}  // namespace sample
