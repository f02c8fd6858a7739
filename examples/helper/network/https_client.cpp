#include "examples/helper/network/https_client.h"

#include <glib-unix.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <utility>

namespace sample {
namespace {

// After hosts' calls, before the copying into the outbox.
constexpr int kPriority = G_PRIORITY_DEFAULT_IDLE;

constexpr long kCrawlInBytesPerSecond = 64;
constexpr long kRedirectLimit = 5;
constexpr long kOk = 200;
constexpr long kTooManyRequests = 429;
constexpr long kRequestTimeout = 408;

// A refused option must not go unnoticed: most of them decide on security.
template <typename Value>
void set(CURL* easy, CURLoption option, Value value) {
  const CURLcode result = curl_easy_setopt(easy, option, value);
  if (result != CURLE_OK) {
    throw std::runtime_error("curl option " + std::to_string(option) + ": " +
                             curl_easy_strerror(result));
  }
}

void initialiseOnce() {
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (result != CURLE_OK) throw std::runtime_error(curl_easy_strerror(result));
}

}  // namespace

bool HttpsResponse::isOutage() const {
  return !isReached || status >= 500 || status == kTooManyRequests || status == kRequestTimeout;
}

std::string HttpsResponse::summary() const {
  return error.empty() ? "the server answered " + std::to_string(status) : error;
}

HttpsClient::HttpsClient(TransportSettings settings) : settings_(std::move(settings)) {
  initialiseOnce();
  multi_.reset(curl_multi_init());
  easy_.reset(curl_easy_init());
  if (!multi_ || !easy_) throw std::runtime_error("curl cannot be set up");
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &HttpsClient::watchSocket);
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &HttpsClient::watchTime);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
}

HttpsClient::~HttpsClient() {
  cancel();
  // Closing the connections still calls watchSocket.
  easy_.reset();
  multi_.reset();
  for (const auto& socket : sockets_) g_source_remove(socket.second);
  if (timer_ != 0) g_source_remove(timer_);
}

void HttpsClient::start(HttpsRequest request, Done done) {
  request_ = std::move(request);
  body_.clear();
  failure_.clear();
  received_ = 0;
  message_[0] = '\0';
  prepare();
  done_ = std::move(done);
  if (curl_multi_add_handle(multi_.get(), easy_.get()) != CURLM_OK) {
    throw std::runtime_error("curl cannot begin a transfer");
  }
  isActive_ = true;
}

void HttpsClient::cancel() {
  if (isActive_) curl_multi_remove_handle(multi_.get(), easy_.get());
  isActive_ = false;
  done_ = nullptr;
  request_ = {};
}

std::int64_t HttpsClient::sent() const {
  curl_off_t count = 0;
  if (isActive_) curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_UPLOAD_T, &count);
  return count;
}

void HttpsClient::prepare() {
  CURL* const easy = easy_.get();
  curl_easy_reset(easy);
  prepareSecurity();
  const auto stall = static_cast<long>(settings_.stallLimit.count());
  set(easy, CURLOPT_URL, request_.url.c_str());
  set(easy, CURLOPT_CONNECTTIMEOUT, stall);
  set(easy, CURLOPT_LOW_SPEED_LIMIT, kCrawlInBytesPerSecond);
  set(easy, CURLOPT_LOW_SPEED_TIME, stall);
  set(easy, CURLOPT_ERRORBUFFER, &message_[0]);
  set(easy, CURLOPT_WRITEFUNCTION, &HttpsClient::writeBody);
  set(easy, CURLOPT_WRITEDATA, this);
  if (!settings_.proxy.empty()) set(easy, CURLOPT_PROXY, settings_.proxy.c_str());
  prepareMethod();
}

void HttpsClient::prepareSecurity() {
  CURL* const easy = easy_.get();
  set(easy, CURLOPT_PROTOCOLS_STR, "https");
  set(easy, CURLOPT_REDIR_PROTOCOLS_STR, "https");
  set(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  set(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  if (settings_.certificateFile.empty() && settings_.certificateFolder.empty()) return;
  const auto orNull = [](const std::string& path) { return path.empty() ? nullptr : path.c_str(); };
  // Both, so that nothing of the system's remains beside them.
  set(easy, CURLOPT_CAINFO, orNull(settings_.certificateFile));
  set(easy, CURLOPT_CAPATH, orNull(settings_.certificateFolder));
}

void HttpsClient::prepareMethod() {
  CURL* const easy = easy_.get();
  if (request_.method == Method::kPut) {
    set(easy, CURLOPT_UPLOAD, 1L);
    set(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request_.body->size()));
    set(easy, CURLOPT_READFUNCTION, &HttpsClient::readBody);
    set(easy, CURLOPT_READDATA, this);
    set(easy, CURLOPT_SEEKFUNCTION, &HttpsClient::rewindBody);
    set(easy, CURLOPT_SEEKDATA, this);
    return;
  }
  set(easy, CURLOPT_FOLLOWLOCATION, 1L);
  set(easy, CURLOPT_MAXREDIRS, kRedirectLimit);
  if (request_.method == Method::kHead) set(easy, CURLOPT_NOBODY, 1L);
}

int HttpsClient::watchSocket(CURL* /*easy*/, curl_socket_t socket, int what, void* self,
                             void* /*unused*/) {
  auto& sockets = static_cast<HttpsClient*>(self)->sockets_;
  if (const auto known = sockets.find(socket); known != sockets.end()) {
    g_source_remove(known->second);
    sockets.erase(known);
  }
  int condition = 0;
  if (what == CURL_POLL_IN || what == CURL_POLL_INOUT) condition |= G_IO_IN;
  if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT) condition |= G_IO_OUT;
  if (condition == 0) return 0;
  const GUnixFDSourceFunc ready = [](gint fd, GIOCondition events, gpointer client) -> gboolean {
    int seen = 0;
    if ((events & G_IO_IN) != 0) seen |= CURL_CSELECT_IN;
    if ((events & G_IO_OUT) != 0) seen |= CURL_CSELECT_OUT;
    if ((events & (G_IO_ERR | G_IO_HUP)) != 0) seen |= CURL_CSELECT_ERR;
    static_cast<HttpsClient*>(client)->act(fd, seen);
    return G_SOURCE_CONTINUE;
  };
  sockets[socket] = g_unix_fd_add_full(kPriority, socket, static_cast<GIOCondition>(condition),
                                       ready, self, nullptr);
  return 0;
}

int HttpsClient::watchTime(CURLM* /*multi*/, long milliseconds, void* self) {
  guint& timer = static_cast<HttpsClient*>(self)->timer_;
  if (timer != 0) g_source_remove(timer);
  timer = 0;
  if (milliseconds < 0) return 0;
  const GSourceFunc elapsed = [](gpointer client) -> gboolean {
    static_cast<HttpsClient*>(client)->timer_ = 0;
    static_cast<HttpsClient*>(client)->act(CURL_SOCKET_TIMEOUT, 0);
    return G_SOURCE_REMOVE;
  };
  timer = g_timeout_add_full(kPriority, static_cast<guint>(milliseconds), elapsed, self, nullptr);
  return 0;
}

void HttpsClient::act(curl_socket_t socket, int events) {
  int running = 0;
  curl_multi_socket_action(multi_.get(), socket, events, &running);
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    finish(message->data.result);
    return;
  }
}

void HttpsClient::finish(CURLcode result) {
  const HttpsResponse answer = response(result);
  const Done done = std::move(done_);
  cancel();
  if (done) done(answer);
}

HttpsResponse HttpsClient::response(CURLcode result) {
  CURL* const easy = easy_.get();
  HttpsResponse response;
  if (!failure_.empty()) {
    response.error = failure_;
  } else if (result != CURLE_OK) {
    response.isReached = false;
    response.error = message_[0] != '\0' ? std::string(message_) : curl_easy_strerror(result);
  }
  curl_off_t length = -1;
  curl_off_t retryAfter = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &response.status);
  curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
  curl_easy_getinfo(easy, CURLINFO_RETRY_AFTER, &retryAfter);
  response.length = length;
  response.retryAfter = std::chrono::seconds(retryAfter);
  response.body = std::move(body_);
  return response;
}

// curl is C: no exception may cross it.
std::size_t HttpsClient::readBody(char* buffer, std::size_t size, std::size_t count, void* self) {
  auto* const client = static_cast<HttpsClient*>(self);
  try {
    return client->request_.body->read(buffer, size * count);
  } catch (const std::exception& error) {
    client->failure_ = error.what();
    return CURL_READFUNC_ABORT;
  }
}

int HttpsClient::rewindBody(void* self, curl_off_t offset, int origin) {
  if (offset != 0 || origin != SEEK_SET) return CURL_SEEKFUNC_CANTSEEK;
  static_cast<HttpsClient*>(self)->request_.body->rewind();
  return CURL_SEEKFUNC_OK;
}

std::size_t HttpsClient::writeBody(char* buffer, std::size_t size, std::size_t count, void* self) {
  auto* const client = static_cast<HttpsClient*>(self);
  try {
    return client->take({buffer, size * count}) ? size * count : 0;
  } catch (const std::exception& error) {
    client->failure_ = error.what();
    return 0;
  }
}

bool HttpsClient::take(std::string_view bytes) {
  received_ += static_cast<std::int64_t>(bytes.size());
  if (received_ > request_.answerLimit) {
    failure_ = "the answer has more than " + std::to_string(request_.answerLimit) + " bytes";
    return false;
  }
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  if (request_.sink && status == kOk) return request_.sink(bytes);
  body_.append(bytes);
  return true;
}

}  // namespace sample
