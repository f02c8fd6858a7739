#include "examples/helper/network/upgrade_check.h"

#include <exception>
#include <utility>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/file_manager.h"
#include "examples/helper/network/signed_feed.h"

namespace sample {
namespace {

constexpr int kAttempts = 3;
constexpr long kOk = 200;

// A feed that is replaced between two requests has a wrong signature for a moment.
bool isWorthAnotherAttempt(FeedFault fault) {
  return fault == FeedFault::kUnreachable || fault == FeedFault::kSignature ||
         fault == FeedFault::kPackage;
}

HttpsRequest requestFor(std::string url) {
  HttpsRequest request;
  request.url = std::move(url);
  return request;
}

void setError(UpgradeOffer& offer, const FeedError& error) {
  offer.code = std::to_string(static_cast<int>(error.fault()));
  offer.description = error.what();
}

}  // namespace

UpgradeCheck::UpgradeCheck(std::string folder, const NetworkSettings& settings, Answered answered)
    : folder_(std::move(folder)),
      settings_(settings.feed),
      answered_(std::move(answered)),
      store_(folder_, settings.feed.publicKey),
      client_(settings.transport),
      delay_(settings.retry) {}

UpgradeCheck::~UpgradeCheck() { suspend(); }

void UpgradeCheck::ask(Question question) {
  waiting_.push_back(std::move(question));
  if (current_.empty()) begin();
}

void UpgradeCheck::suspend() {
  if (timer_ != 0) g_source_remove(timer_);
  timer_ = 0;
  client_.cancel();
  writer_.reset();
}

void UpgradeCheck::begin() {
  current_.assign(waiting_.begin(), waiting_.end());
  waiting_.clear();
  failures_ = 0;
  delay_.reset();
  fetchFeed();
}

void UpgradeCheck::fetchFeed() {
  feed_.reset();
  fetch(requestFor(settings_.url), [this](const HttpsResponse& feed) {
    bytes_ = feed.body;
    fetch(requestFor(settings_.url + ".sig"), [this](const HttpsResponse& signature) {
      SignedFeed verified(bytes_, signature.body, settings_.publicKey);
      store_.accept(verified);
      feed_ = std::move(verified);
      answerAll();
    });
  });
}

void UpgradeCheck::fetch(HttpsRequest request, std::function<void(const HttpsResponse&)> use) {
  const auto received = [this, use = std::move(use)](const HttpsResponse& response) {
    if (!response.error.empty() || response.status != kOk) {
      const bool isPackage = feed_ && !response.isOutage();
      throw FeedError(isPackage ? FeedFault::kPackage : FeedFault::kUnreachable,
                      "the upgrade cannot be fetched: " + response.summary());
    }
    use(response);
  };
  guarded([&] {
    client_.start(std::move(request), [this, received](const HttpsResponse& response) {
      guarded([&] { received(response); });
    });
  });
}

void UpgradeCheck::guarded(const std::function<void()>& action) {
  try {
    action();
  } catch (const FeedError& error) {
    onFailure(error);
  } catch (const std::exception& error) {
    onFailure(FeedError(feed_ ? FeedFault::kPackage : FeedFault::kUnreadable, error.what()));
  }
}

// Answers the questions in turn, until one needs its package first.
void UpgradeCheck::answerAll() {
  while (!current_.empty()) {
    UpgradeOffer& offer = current_.front().offer;
    const auto entry = feed_->entryFor(offer.productID);
    if (entry) {
      offer.toVersion = entry->version;
      offer.code = std::to_string(entry->code);
      offer.description = entry->description;
      const bool isNewer =
          TQHPHelperCommunicate::compareVersion(entry->version, offer.fromVersion) == 1;
      if (isNewer && entry->package && !isFetched(*entry->package)) {
        fetchPackage(*entry->package);
        return;
      }
    }
    answerFirst();
  }
  feed_.reset();
  if (!waiting_.empty()) begin();
}

bool UpgradeCheck::isFetched(const UpgradePackage& package) const {
  return clientcomm::fileExistsAtPath(packagePath(folder_, package));
}

void UpgradeCheck::fetchPackage(const UpgradePackage& package) {
  HttpsRequest request = requestFor(absolute(package.url));
  request.answerLimit = package.size;
  writer_ = std::make_shared<PackageWriter>(folder_, package);
  request.sink = [writer = writer_](std::string_view bytes) { return writer->take(bytes); };
  fetch(std::move(request), [this](const HttpsResponse& /*response*/) {
    const auto writer = std::move(writer_);
    writer->finish();
    answerAll();
  });
}

// Relative to the folder of the feed.
std::string UpgradeCheck::absolute(const std::string& url) const {
  if (url.find("://") != std::string::npos) return url;
  return settings_.url.substr(0, settings_.url.rfind('/') + 1) + url;
}

void UpgradeCheck::answerFirst() {
  const Question question = std::move(current_.front());
  current_.pop_front();
  answered_(question);
}

void UpgradeCheck::onFailure(const FeedError& error) {
  writer_.reset();
  g_warning("upgrade check: %s", error.what());
  if (isWorthAnotherAttempt(error.fault()) && ++failures_ < kAttempts) {
    tryAgain();
    return;
  }
  const bool concernsOne = feed_.has_value();
  failures_ = 0;
  do {
    setError(current_.front().offer, error);
    answerFirst();
  } while (!concernsOne && !current_.empty());
  guarded([this] { answerAll(); });
}

void UpgradeCheck::tryAgain() {
  const GSourceFunc again = [](gpointer self) -> gboolean {
    static_cast<UpgradeCheck*>(self)->timer_ = 0;
    static_cast<UpgradeCheck*>(self)->fetchFeed();
    return G_SOURCE_REMOVE;
  };
  timer_ = g_timeout_add_full(G_PRIORITY_LOW, static_cast<guint>(delay_.next().count()), again,
                              this, nullptr);
}

}  // namespace sample
