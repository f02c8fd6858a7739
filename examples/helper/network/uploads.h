#pragma once

#include <glib.h>

#include <chrono>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "examples/helper/network/batch_transfer.h"
#include "examples/helper/network/https_client.h"
#include "examples/helper/network/network_settings.h"
#include "examples/helper/network/retry_delay.h"
#include "examples/helper/network/upload_record.h"

namespace sample {

/// Brings the outbox to the server, one batch after the other, and removes from it what the server
/// has. A batch that fails waits, and the others go on; when the server fails, all wait.
class Uploads {
 public:
  /// @param dataFolder where the record of uploads goes, and "Uploads.json" for hosts to read.
  /// @throws std::runtime_error.
  Uploads(std::string dataFolder, std::string outbox, const NetworkSettings& settings);
  ~Uploads();
  Uploads(const Uploads&) = delete;
  Uploads& operator=(const Uploads&) = delete;

  /// Looks for batches in the outbox. It may be called at any time.
  void wake();
  void suspend();

  /// What the record of uploads says, with the progress of this moment.
  nlohmann::json contents();

 private:
  using Clock = std::chrono::steady_clock;
  struct Waiting {
    RetryDelay delay;
    Clock::time_point due;
  };

  struct Entry {
    std::string name;
    std::string path;
  };

  bool work();
  std::optional<Entry> nextEntry(Clock::time_point now);
  void startBatch(const Entry& entry);
  void onEnded(const Entry& entry, const BatchTransfer::Result& result);
  void putOff(const Entry& entry, const BatchTransfer::Result& result);
  void workIn(std::chrono::milliseconds delay);
  void workWhenDue(Clock::time_point now);
  void showProgress();
  void writeProgress();

  std::string dataFolder_;
  std::string outbox_;
  NetworkSettings settings_;
  UploadRecord record_;
  HttpsClient client_;
  std::unique_ptr<BatchTransfer> current_;
  std::map<std::string, Waiting> waiting_;
  RetryDelay serverDelay_;
  Clock::time_point serverDue_{};
  guint worker_ = 0;
  guint progressTimer_ = 0;
  std::string shownProgress_;
};

}  // namespace sample
