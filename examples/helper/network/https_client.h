#pragma once

#include <curl/curl.h>
#include <glib.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "examples/helper/network/network_settings.h"
#include "examples/helper/network/request_body.h"

namespace sample {

enum class Method { kGet, kHead, kPut };

struct HttpsRequest {
  Method method = Method::kGet;
  std::string url;
  std::shared_ptr<RequestBody> body;  ///< Of a PUT.
  /// Takes the bytes of a successful answer as they come. @return false to end the transfer.
  /// Without it they are collected in `HttpsResponse::body`.
  std::function<bool(std::string_view bytes)> sink;
  /// An answer with more bytes than this is a failure.
  std::int64_t answerLimit = 1 << 20;
};

struct HttpsResponse {
  std::string error;      ///< Why there is no whole answer; empty when there is one.
  bool isReached = true;  ///< False when the connection failed.
  long status = 0;        ///< Of HTTP.
  std::string body;
  std::int64_t length = -1;  ///< As the server states it; -1 when it does not.
  std::chrono::seconds retryAfter{0};

  bool isSuccess() const { return error.empty() && status >= 200 && status < 300; }
  /// Whether the server cannot be reached, or says that it cannot serve now: what it would not take
  /// has nothing to do with this request.
  bool isOutage() const;
  /// In a few words, for people to read.
  std::string summary() const;
};

/// Makes HTTPS requests from the main loop, one at a time, and keeps the connection for the next.
///
/// TLS 1.2 is the least, and certificate and host name are always verified. Redirections lead to
/// https addresses only, and only for requests without a body.
class HttpsClient {
 public:
  using Done = std::function<void(const HttpsResponse& response)>;

  /// @throws std::runtime_error.
  explicit HttpsClient(TransportSettings settings);
  ~HttpsClient();
  HttpsClient(const HttpsClient&) = delete;
  HttpsClient& operator=(const HttpsClient&) = delete;

  /// Begins a request; there must be none. `done` is called later, from the main loop; it must not
  /// throw, and may begin the next request.
  void start(HttpsRequest request, Done done);

  /// Drops the request at hand; its `done` is not called.
  void cancel();

  /// How many bytes of the request's body have been sent.
  std::int64_t sent() const;

 private:
  struct EasyCleanup {
    void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
  };
  struct MultiCleanup {
    void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
  };

  void prepare();
  void prepareSecurity();
  void prepareMethod();
  void act(curl_socket_t socket, int events);
  void finish(CURLcode result);
  HttpsResponse response(CURLcode result);
  bool take(std::string_view bytes);

  static int watchSocket(CURL* easy, curl_socket_t socket, int what, void* self, void* unused);
  static int watchTime(CURLM* multi, long milliseconds, void* self);
  static std::size_t readBody(char* buffer, std::size_t size, std::size_t count, void* self);
  static int rewindBody(void* self, curl_off_t offset, int origin);
  static std::size_t writeBody(char* buffer, std::size_t size, std::size_t count, void* self);

  TransportSettings settings_;
  std::map<curl_socket_t, guint> sockets_;
  guint timer_ = 0;
  std::unique_ptr<CURLM, MultiCleanup> multi_;
  std::unique_ptr<CURL, EasyCleanup> easy_;
  bool isActive_ = false;
  HttpsRequest request_;
  Done done_;
  std::string body_;
  std::int64_t received_ = 0;
  std::string failure_;
  char message_[CURL_ERROR_SIZE] = {};
};

}  // namespace sample
