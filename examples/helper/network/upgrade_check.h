#pragma once

#include <glib.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "examples/helper/journal.h"
#include "examples/helper/network/https_client.h"
#include "examples/helper/network/network_settings.h"
#include "examples/helper/network/package_file.h"
#include "examples/helper/network/retry_delay.h"
#include "examples/helper/network/signed_feed.h"

namespace sample {

/// Looks hosts' products up in the signed feed, and fetches the packages of newer versions, one
/// question after the other. Each question is answered once: with what the feed says, or with the
/// reason why it cannot be used.
class UpgradeCheck {
 public:
  struct Question {
    std::int64_t id = 0;
    UpgradeOffer offer;
  };
  /// Called from the main loop; must not throw.
  using Answered = std::function<void(const Question& question)>;

  /// @param folder where the newest feed and the packages go. @throws std::runtime_error.
  UpgradeCheck(std::string folder, const NetworkSettings& settings, Answered answered);
  ~UpgradeCheck();
  UpgradeCheck(const UpgradeCheck&) = delete;
  UpgradeCheck& operator=(const UpgradeCheck&) = delete;

  void ask(Question question);
  void suspend();

 private:
  void begin();
  void fetchFeed();
  void fetch(HttpsRequest request, std::function<void(const HttpsResponse&)> use);
  void guarded(const std::function<void()>& action);
  void answerAll();
  void answerFirst();
  bool isFetched(const UpgradePackage& package) const;
  void fetchPackage(const UpgradePackage& package);
  void onFailure(const FeedError& error);
  void tryAgain();
  std::string absolute(const std::string& url) const;

  std::string folder_;
  FeedSettings settings_;
  Answered answered_;
  FeedStore store_;
  HttpsClient client_;
  std::vector<Question> waiting_;  // for the next reading of the feed
  std::deque<Question> current_;   // for the reading at hand
  std::string bytes_;
  std::optional<SignedFeed> feed_;
  std::shared_ptr<PackageWriter> writer_;
  RetryDelay delay_;
  int failures_ = 0;
  guint timer_ = 0;
};

}  // namespace sample
