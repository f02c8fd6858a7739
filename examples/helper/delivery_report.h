#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace sample {

class DeliveryInProgress;
class Journal;

/// Shows hosts how far their deliveries are: the file "Deliveries.json", which can be written anew
/// at any time.
class DeliveryReport {
 public:
  DeliveryReport(Journal& journal, std::string path);

  /// The latest 100 deliveries, the newest first: where each comes from, and its "state"
  /// ("waiting", "copying" with "copied" and "size" in bytes, "done"). @throws DatabaseError.
  nlohmann::json contents(const DeliveryInProgress* current);

  enum class When {
    kNow,
    kInTurn  ///< At most five times a second.
  };

  /// Brings the file up to date. @param current the delivery that is being made; null for none.
  void update(const DeliveryInProgress* current, When when) noexcept;

 private:
  Journal& journal_;
  std::string path_;
  std::string written_;
  std::int64_t due_ = 0;  ///< In microseconds of the monotonic clock.
};

}  // namespace sample
