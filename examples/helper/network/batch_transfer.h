#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "examples/helper/network/https_client.h"
#include "examples/helper/network/upload_batch.h"
#include "examples/helper/network/upload_record.h"

namespace sample {

/// One attempt to bring a batch to the server: its parts, then the manifest, then a look whether
/// the server has it. Parts that an earlier attempt has sent are not sent again if the server still
/// has them. Every request can be repeated: it puts the same bytes under the same name.
class BatchTransfer {
 public:
  enum class Outcome {
    kDone,    ///< The server has the batch.
    kOutage,  ///< The server cannot be reached or cannot serve now.
    kFailed,  ///< Something is wrong with this batch, here or there.
  };
  struct Result {
    Outcome outcome = Outcome::kFailed;
    std::string error;
    std::chrono::seconds retryAfter{0};  ///< As the server asks for.
  };
  /// Called once, from the main loop; it may destroy the transfer.
  using Ended = std::function<void(const Result& result)>;

  /// @param url the folder of all batches. @throws DatabaseError.
  BatchTransfer(HttpsClient& client, UploadRecord& record, UploadBatch batch,
                UploadRecord::Progress progress, const std::string& url, Ended ended);

  /// Begins. @throws std::exception when it cannot.
  void start() { next(); }

  const UploadBatch& batch() const noexcept { return batch_; }

  /// Bytes sent of the part at hand, which the server has not acknowledged yet.
  std::int64_t partSent() const { return body_ ? client_.sent() : 0; }

 private:
  using Answer = void (BatchTransfer::*)(const HttpsResponse& response);

  void next();
  void ask(Method method, const std::string& name, std::shared_ptr<RequestBody> body,
           Answer answer);
  void askForManifest(Answer answer);
  void confirmPart();
  void sendPart();
  void sendManifest();

  void onEarlierManifest(const HttpsResponse& response);
  void onPartConfirmed(const HttpsResponse& response);
  void onPartSent(const HttpsResponse& response);
  void onManifestSent(const HttpsResponse& response);
  void onFinalManifest(const HttpsResponse& response);

  bool hasAllParts() const { return progress_.parts.size() == batch_.parts().size(); }
  void end(Result result);
  void endWith(const HttpsResponse& response, const std::string& step);

  HttpsClient& client_;
  UploadRecord& record_;
  UploadBatch batch_;
  UploadRecord::Progress progress_;
  std::string url_;
  Ended ended_;
  std::size_t index_ = 0;
  bool isManifestAbsent_ = false;
  std::shared_ptr<FilePartBody> body_;
};

}  // namespace sample
