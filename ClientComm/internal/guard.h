#pragma once

#include <type_traits>
#include <utility>

namespace clientcomm {

/// Runs `body` for the host: an exception ends here and gives `fallback`.
template <typename Result, typename Body>
Result guarded(Result fallback, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return fallback;
  }
}

/// The same for an operation without a result.
template <typename Body>
void guarded(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    // The operation is abandoned; the next timer tick or call retries.
  }
}

}  // namespace clientcomm
