#pragma once

#include <glib.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "examples/helper/delivery_report.h"
#include "examples/helper/journal.h"

namespace sample {

class DeliveryInProgress;

/// Makes the deliveries that hosts have handed over: each becomes a folder of its own in the
/// outbox, with "record.json" and, where a file goes with it, the file's bytes as "content". The
/// folder appears whole, once, whatever befalls the helper meanwhile. Files are copied piece by
/// piece from the main loop, so that a large one keeps no host waiting. Deliveries.json beside the
/// outbox shows how far they are.
class Outbox {
 public:
  /// @param entryMade called after each new entry.
  Outbox(Journal& journal, std::string folder, std::function<void()> entryMade = {});
  ~Outbox();
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  const std::string& folder() const noexcept { return folder_; }

  /// Takes a delivery; it is safe when the call returns. @throws DatabaseError, FileError: then it
  /// was not taken.
  void take(const Delivery& delivery);

  /// Goes on with what an earlier run left, and clears away its half-made folders.
  void resume();

  /// Stops working until something is taken; what is open stays so.
  void suspend();

  /// The latest deliveries and how far they are; see DeliveryReport. @throws DatabaseError.
  nlohmann::json deliveries() { return report_.contents(current_.get()); }

  /// Does the next piece of work. @return whether there is more to do now.
  bool work();

 private:
  void clearPartialEntries();
  void wake();
  void tryAgainLater();
  bool workOnNext();

  Journal& journal_;
  std::string folder_;
  std::function<void()> entryMade_;
  DeliveryReport report_;
  std::deque<Delivery> queue_;
  std::unique_ptr<DeliveryInProgress> current_;
  guint source_ = 0;
};

}  // namespace sample
