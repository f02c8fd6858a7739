#pragma once

#include <glib.h>

#include <cstdint>
#include <optional>
#include <string>

namespace sample {

/// Looks at the helper from outside, once a second, and prints what has changed: the process that
/// runs, and whether its server is open.
class HelperWatch {
 public:
  /// Begins to watch; what is found first is printed too.
  HelperWatch();
  ~HelperWatch();
  HelperWatch(const HelperWatch&) = delete;
  HelperWatch& operator=(const HelperWatch&) = delete;

  void look();

 private:
  std::optional<std::int32_t> pid_;
  std::optional<bool> isServerOpen_;
  guint source_ = 0;
};

/// The process ID of the running helper of this host; nothing while none runs.
std::optional<std::int32_t> runningHelper();

}  // namespace sample
