#include "examples/helper/network/uploads.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <utility>

#include "examples/helper/durable_file.h"
#include "examples/helper/json_text.h"

namespace sample {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr guint kProgressInMilliseconds = 500;
constexpr std::chrono::hours kLongestRetryAfter{24};

// Renamed first: a folder that is half removed is no entry any more.
void removeEntry(const std::string& path) {
  const fs::path entry(path);
  const fs::path removed =
      entry.parent_path() / (std::string(kPartialPrefix) + "sent-" + entry.filename().string());
  std::error_code error;
  fs::rename(entry, removed, error);
  if (error && error != std::errc::no_such_file_or_directory) {
    throw FileError("cannot remove " + path + ": " + error.message());
  }
  fs::remove_all(removed, error);  // what remains is removed at the next start
}

}  // namespace

Uploads::Uploads(std::string dataFolder, std::string outbox, const NetworkSettings& settings)
    : dataFolder_(std::move(dataFolder)),
      outbox_(std::move(outbox)),
      settings_(settings),
      record_(dataFolder_),
      client_(settings.transport),
      serverDelay_(settings.retry) {}

Uploads::~Uploads() { suspend(); }

void Uploads::wake() {
  if (!current_) workIn(milliseconds(0));
}

void Uploads::suspend() {
  for (guint* const source : {&worker_, &progressTimer_}) {
    if (*source != 0) g_source_remove(*source);
    *source = 0;
  }
  client_.cancel();
  current_.reset();
}

void Uploads::workIn(milliseconds delay) {
  if (worker_ != 0) g_source_remove(worker_);
  const GSourceFunc workNow = [](gpointer data) -> gboolean {
    auto* const self = static_cast<Uploads*>(data);
    self->worker_ = 0;
    if (self->work()) self->workIn(milliseconds(0));
    return G_SOURCE_REMOVE;
  };
  worker_ = g_timeout_add_full(G_PRIORITY_DEFAULT_IDLE, static_cast<guint>(delay.count()), workNow,
                               this, nullptr);
}

// Deals with the next batch. @return whether to go on at once.
bool Uploads::work() {
  const auto now = Clock::now();
  const auto entry = nextEntry(now);
  if (!entry) {
    workWhenDue(now);
    return false;
  }
  try {
    startBatch(*entry);
  } catch (const std::exception& error) {
    client_.cancel();
    current_.reset();
    putOff(*entry, {BatchTransfer::Outcome::kFailed, error.what(), {}});
  }
  return !current_;
}

// The first batch, by name, that need not wait.
std::optional<Uploads::Entry> Uploads::nextEntry(Clock::time_point now) {
  if (now < serverDue_) return std::nullopt;
  std::optional<Entry> first;
  std::error_code error;
  for (fs::directory_iterator item(outbox_, error), end; !error && item != end;
       item.increment(error)) {
    Entry entry{UploadBatch::nameOf(item->path()), item->path()};
    if (entry.name.empty() || (first && entry.name >= first->name)) continue;
    const auto waiting = waiting_.find(entry.name);
    if (waiting == waiting_.end() || waiting->second.due <= now) first = std::move(entry);
  }
  return first;
}

// @param now the time at which nothing was found to be due.
void Uploads::workWhenDue(Clock::time_point now) {
  auto due = serverDue_;
  if (due <= now) {
    // What is due and was not found has left the outbox.
    std::erase_if(waiting_, [&](const auto& waiting) { return waiting.second.due <= now; });
    if (waiting_.empty()) return;
    due = Clock::time_point::max();
    for (const auto& waiting : waiting_) due = std::min(due, waiting.second.due);
  }
  workIn(std::chrono::ceil<milliseconds>(due - now));
}

void Uploads::startBatch(const Entry& entry) {
  auto progress = record_.find(entry.name);
  if (progress && progress->isDone) {
    // The helper was ended between the last two steps, or the entry was made again.
    removeEntry(entry.path);
    return;
  }
  // A batch keeps the part size that it was begun with.
  const std::int64_t partSize = progress ? progress->partSize : settings_.uploads.partSize;
  UploadBatch batch(entry.path, partSize);
  if (!progress) {
    record_.begin(batch, partSize);
    progress = UploadRecord::Progress{partSize, false, {}};
  }
  current_ = std::make_unique<BatchTransfer>(
      client_, record_, std::move(batch), std::move(*progress), settings_.uploads.url,
      [this, entry](const BatchTransfer::Result& result) { onEnded(entry, result); });
  current_->start();
  showProgress();
}

// Must not throw.
void Uploads::onEnded(const Entry& entry, const BatchTransfer::Result& result) {
  const Entry ended = entry;  // the argument goes with the transfer
  const BatchTransfer::Result outcome = result;
  current_.reset();
  if (outcome.outcome == BatchTransfer::Outcome::kDone) {
    try {
      // Noted first: an entry that is gone without a note could be made again, with other content.
      record_.finish(ended.name);
      removeEntry(ended.path);
      waiting_.erase(ended.name);
      serverDelay_.reset();
    } catch (const std::exception& error) {
      putOff(ended, {BatchTransfer::Outcome::kFailed, error.what(), {}});
    }
  } else {
    putOff(ended, outcome);
  }
  showProgress();
  workIn(milliseconds(0));
}

void Uploads::putOff(const Entry& entry, const BatchTransfer::Result& result) {
  g_warning("upload of %s has to wait: %s", entry.name.c_str(), result.error.c_str());
  const milliseconds asked = std::min<milliseconds>(result.retryAfter, kLongestRetryAfter);
  const auto now = Clock::now();
  if (result.outcome == BatchTransfer::Outcome::kOutage) {
    serverDue_ = now + std::max(serverDelay_.next(), asked);
  } else {
    Waiting& waiting =
        waiting_.try_emplace(entry.name, Waiting{RetryDelay(settings_.retry), now}).first->second;
    waiting.due = now + std::max(waiting.delay.next(), asked);
  }
  try {
    record_.noteFailure(entry.name, result.error);
  } catch (const std::exception& error) {
    g_warning("%s", error.what());
  }
}

nlohmann::json Uploads::contents() {
  nlohmann::json all = record_.contents();
  for (auto& upload : all) {
    if (!current_ || upload["name"] != current_->batch().name()) continue;
    upload["state"] = "sending";
    upload["sent"] = upload["sent"].get<std::int64_t>() + current_->partSent();
  }
  return all;
}

void Uploads::showProgress() {
  writeProgress();
  if (progressTimer_ != 0 || !current_) return;
  const GSourceFunc show = [](gpointer data) -> gboolean {
    auto* const self = static_cast<Uploads*>(data);
    self->writeProgress();
    if (self->current_) return G_SOURCE_CONTINUE;
    self->progressTimer_ = 0;
    return G_SOURCE_REMOVE;
  };
  progressTimer_ = g_timeout_add_full(G_PRIORITY_LOW, kProgressInMilliseconds, show, this, nullptr);
}

// For hosts to read. It can be written anew from the record, so it does not wait for the disk.
void Uploads::writeProgress() {
  try {
    std::string text = jsonText({{"uploads", contents()}});
    if (text == shownProgress_) return;
    replaceFile(dataFolder_ + "/Uploads.json", text);
    shownProgress_ = std::move(text);
  } catch (const std::exception& error) {
    g_warning("%s", error.what());
  }
}

}  // namespace sample
