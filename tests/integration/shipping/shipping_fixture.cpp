#include "tests/integration/shipping/shipping_fixture.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include "ClientComm/TQHPUploadByHelper.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;
using support::sandbox;

namespace {

// A helper that has something to do is not asked all the time.
constexpr std::chrono::milliseconds kLookEvery{10};
constexpr std::chrono::seconds kLimit{80};

}  // namespace

void Shipping::SetUp() {
  SampleHelperFixture::SetUp();
  for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY",
                           "no_proxy", "NO_PROXY", "CURL_CA_BUNDLE", "SSL_CERT_FILE"}) {
    unsetenv(name);
  }
  server_ = std::make_unique<WebServer>();
  server_->start();
  relay_ = std::make_unique<Relay>(server_->socket());
  set("UploadURL", url("/uploads"));
  set("CertificateFile", server_->authority());
  set("RetrySeconds", "0.01");
  set("RetryLimitSeconds", "0.1");
}

// The relay goes first: what is connected to it may be gone at any moment.
void Shipping::TearDown() { relay_.reset(); }

std::string Shipping::url(const std::string& path, const std::string& host) const {
  return "https://" + host + ":" + std::to_string(relay_->port()) + path;
}

void Shipping::upload(const std::string& bytes, const std::string& title) {
  static int sequence = 0;
  const std::string path = sandbox() + "/upload-" + std::to_string(sequence++);
  support::writeFile(path, bytes);
  ASSERT_EQ(TQHPUploadByHelper::share().uploadLog("P100", "1.2.3", "", path, title, ""), 0);
}

std::string Shipping::noise(std::size_t count) {
  static std::mt19937 random;
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

Shipping::Json Shipping::onlyUpload() {
  const Json now = state();
  if (now.is_null() || now["uploads"].size() != 1) return {};
  return now["uploads"][0];
}

bool Shipping::waitForHelper(const std::function<bool(const Json&)>& condition) {
  return support::waitUntil(
      [&] {
        const Json now = state();
        if (!now.is_null() && condition(now)) return true;
        std::this_thread::sleep_for(kLookEvery);
        return false;
      },
      kLimit);
}

bool Shipping::waitForUploads(std::size_t count) {
  return waitForHelper([count](const Json& now) {
    const Json& all = now["uploads"];
    const auto done = std::count_if(all.begin(), all.end(),
                                    [](const Json& each) { return each["state"] == "done"; });
    return static_cast<std::size_t>(done) == count;
  });
}

bool Shipping::waitForError(const std::string& text) {
  return waitForHelper([&](const Json& now) {
    const Json& all = now["uploads"];
    return std::any_of(all.begin(), all.end(), [&](const Json& each) {
      return each["latestError"].get<std::string>().find(text) != std::string::npos;
    });
  });
}

std::size_t Shipping::outboxEntries() {
  if (!fs::exists(outbox())) return 0;
  const fs::directory_iterator entries(outbox());
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}
