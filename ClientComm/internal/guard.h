#pragma once

#include <type_traits>
#include <utility>

#include "ClientComm/platform/reporter.h"

namespace clientcomm {

/// Runs `body` for the host: an exception ends here and gives `fallback`.
template <typename Result, typename Body>
Result guarded(Result fallback, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    reportException();
    return fallback;
  }
}

/// The same for an operation without a result.
template <typename Body>
void guarded(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    reportException();  // the next timer tick or call retries
  }
}

}  // namespace clientcomm
