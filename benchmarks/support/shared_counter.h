#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace bench {

/// A counter that a receiver counts up with everything it has handled, seen by the sender without
/// another exchange.
class SharedCounter {
 public:
  /// Opens the counter in the file at `path`, which is made when there is none.
  explicit SharedCounter(const std::string& path);
  ~SharedCounter();
  SharedCounter(const SharedCounter&) = delete;
  SharedCounter& operator=(const SharedCounter&) = delete;

  void increment() const { value_->fetch_add(1, std::memory_order_release); }
  std::uint64_t value() const { return value_->load(std::memory_order_acquire); }
  /// Spins until `value` is reached.
  /// @return false when it was not reached within some seconds.
  bool waitFor(std::uint64_t value) const;

 private:
  std::atomic<std::uint64_t>* value_;
};

}  // namespace bench
