#include "examples/helper/network/batch_transfer.h"

#include <exception>
#include <utility>

namespace sample {
namespace {

constexpr const char kManifest[] = "manifest.json";
constexpr std::int64_t kManifestLimit = 16 << 20;
constexpr long kNotFound = 404;
constexpr long kGone = 410;

bool isAbsent(const HttpsResponse& response) {
  return response.error.empty() && (response.status == kNotFound || response.status == kGone);
}

}  // namespace

BatchTransfer::BatchTransfer(HttpsClient& client, UploadRecord& record, UploadBatch batch,
                             UploadRecord::Progress progress, const std::string& url, Ended ended)
    : client_(client),
      record_(record),
      batch_(std::move(batch)),
      progress_(std::move(progress)),
      url_(url + "/" + batch_.name() + "/"),
      ended_(std::move(ended)) {}

// The steps of an attempt. With all parts acknowledged, the manifest may have arrived too.
void BatchTransfer::next() {
  if (index_ == 0 && hasAllParts() && !isManifestAbsent_) {
    askForManifest(&BatchTransfer::onEarlierManifest);
  } else if (index_ == batch_.parts().size()) {
    sendManifest();
  } else if (progress_.parts.contains(batch_.parts()[index_].name)) {
    confirmPart();
  } else {
    sendPart();
  }
}

void BatchTransfer::ask(Method method, const std::string& name, std::shared_ptr<RequestBody> body,
                        Answer answer) {
  HttpsRequest request;
  request.answerLimit = kManifestLimit;
  request.method = method;
  request.url = url_ + name;
  request.body = std::move(body);
  client_.start(std::move(request), [this, answer](const HttpsResponse& response) {
    try {
      (this->*answer)(response);
    } catch (const std::exception& error) {
      end({Outcome::kFailed, error.what(), {}});
    }
  });
}

void BatchTransfer::askForManifest(Answer answer) { ask(Method::kGet, kManifest, nullptr, answer); }

void BatchTransfer::onEarlierManifest(const HttpsResponse& response) {
  if (response.isSuccess() && response.body == batch_.manifest(progress_.parts)) {
    end({Outcome::kDone, "", {}});
  } else if (response.isSuccess() || isAbsent(response)) {
    isManifestAbsent_ = true;
    next();
  } else {
    endWith(response, "asking for the manifest");
  }
}

void BatchTransfer::confirmPart() {
  ask(Method::kHead, batch_.parts()[index_].name, nullptr, &BatchTransfer::onPartConfirmed);
}

void BatchTransfer::onPartConfirmed(const HttpsResponse& response) {
  const UploadPart& part = batch_.parts()[index_];
  if (response.isSuccess() && response.length == part.size) {
    ++index_;
  } else if (response.isSuccess() || isAbsent(response)) {
    record_.forgetPart(batch_.name(), part);
    progress_.parts.erase(part.name);
  } else {
    endWith(response, "asking for a part");
    return;
  }
  next();
}

void BatchTransfer::sendPart() {
  const UploadPart& part = batch_.parts()[index_];
  body_ = std::make_shared<FilePartBody>(part.path, part.offset, part.size);
  ask(Method::kPut, part.name, body_, &BatchTransfer::onPartSent);
}

void BatchTransfer::onPartSent(const HttpsResponse& response) {
  const auto body = std::move(body_);
  if (!response.isSuccess()) {
    endWith(response, "sending a part");
    return;
  }
  const UploadPart& part = batch_.parts()[index_];
  const std::string sum = body->sha256();
  record_.notePart(batch_.name(), part, sum);
  progress_.parts[part.name] = sum;
  isManifestAbsent_ = true;
  ++index_;
  next();
}

void BatchTransfer::sendManifest() {
  ask(Method::kPut, kManifest, std::make_shared<TextBody>(batch_.manifest(progress_.parts)),
      &BatchTransfer::onManifestSent);
}

void BatchTransfer::onManifestSent(const HttpsResponse& response) {
  if (response.isSuccess()) {
    askForManifest(&BatchTransfer::onFinalManifest);
  } else {
    endWith(response, "sending the manifest");
  }
}

void BatchTransfer::onFinalManifest(const HttpsResponse& response) {
  if (response.isSuccess() && response.body == batch_.manifest(progress_.parts)) {
    end({Outcome::kDone, "", {}});
  } else if (response.isSuccess() || isAbsent(response)) {
    end({Outcome::kFailed, "the server does not have what it has acknowledged", {}});
  } else {
    endWith(response, "asking for the manifest");
  }
}

void BatchTransfer::endWith(const HttpsResponse& response, const std::string& step) {
  end({response.isOutage() ? Outcome::kOutage : Outcome::kFailed, step + ": " + response.summary(),
       response.retryAfter});
}

void BatchTransfer::end(Result result) {
  const Ended ended = std::move(ended_);
  ended(result);  // destroys this
}

}  // namespace sample
