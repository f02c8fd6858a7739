#include "examples/helper/outbox.h"

#include <filesystem>
#include <utility>

#include "ClientComm/platform/file_manager.h"
#include "examples/helper/delivery_in_progress.h"
#include "examples/helper/durable_file.h"

namespace sample {
namespace {

namespace fs = std::filesystem;

constexpr guint kRetryInSeconds = 30;

}  // namespace

Outbox::Outbox(Journal& journal, std::string folder, std::function<void()> entryMade)
    : journal_(journal),
      folder_(std::move(folder)),
      entryMade_(std::move(entryMade)),
      report_(journal, fs::path(folder_).parent_path().string() + "/Deliveries.json") {}

Outbox::~Outbox() { suspend(); }

void Outbox::take(const Delivery& delivery) {
  journal_.take(delivery);
  wake();
}

void Outbox::resume() {
  clearPartialEntries();
  wake();
}

void Outbox::suspend() {
  if (source_ != 0) g_source_remove(source_);
  source_ = 0;
}

void Outbox::clearPartialEntries() {
  std::error_code error;
  for (fs::directory_iterator entry(folder_, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    std::error_code ignored;
    if (name.starts_with(kPartialPrefix)) fs::remove_all(*entry, ignored);
  }
}

// The work has the lowest priority: hosts' calls go before it.
void Outbox::wake() {
  suspend();
  const GSourceFunc doWork = [](gpointer data) -> gboolean {
    auto* const self = static_cast<Outbox*>(data);
    const guint source = self->source_;
    if (self->work()) return G_SOURCE_CONTINUE;
    if (self->source_ == source) self->source_ = 0;
    return G_SOURCE_REMOVE;
  };
  source_ = g_idle_add_full(G_PRIORITY_LOW, doWork, this, nullptr);
}

void Outbox::tryAgainLater() {
  const GSourceFunc again = [](gpointer data) -> gboolean {
    auto* const self = static_cast<Outbox*>(data);
    self->source_ = 0;
    self->wake();
    return G_SOURCE_REMOVE;
  };
  source_ = g_timeout_add_seconds(kRetryInSeconds, again, this);
}

bool Outbox::work() {
  try {
    const bool isMore = workOnNext();
    report_.update(current_.get(),
                   isMore ? DeliveryReport::When::kInTurn : DeliveryReport::When::kNow);
    return isMore;
  } catch (const std::exception& error) {
    g_warning("a delivery has to wait: %s", error.what());
    current_.reset();
    queue_.clear();
    tryAgainLater();
    return false;
  }
}

bool Outbox::workOnNext() {
  if (!current_) {
    if (queue_.empty()) {
      for (Delivery& delivery : journal_.openDeliveries()) queue_.push_back(std::move(delivery));
    }
    if (queue_.empty()) return false;
    const Delivery next = std::move(queue_.front());
    queue_.pop_front();
    if (clientcomm::fileExistsAtPath(folder_ + "/" + next.name)) {
      // The helper was ended between the two last steps.
      journal_.closeDelivery(next.id);
      return true;
    }
    current_ = std::make_unique<DeliveryInProgress>(next, folder_);
  }
  if (current_->work()) return true;
  journal_.closeDelivery(current_->delivery().id);
  current_.reset();
  if (entryMade_) entryMade_();
  return true;
}

}  // namespace sample
