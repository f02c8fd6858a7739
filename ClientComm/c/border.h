#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/types.h"

/// What each function of the C interface needs: the right thread, no exception to the caller, and
/// conversions.
namespace clientcomm {

/// Ends a function of the C interface with `status`. Thrown and caught within it.
struct Refusal {
  clientcomm_status status;
};

/// Runs `body` on behalf of a caller in C. @return its status; CLIENTCOMM_WRONG_THREAD unless the
/// calling thread made the first call; the status of a Refusal; CLIENTCOMM_OUT_OF_RESOURCES for any
/// other exception.
clientcomm_status runAtBorder(clientcomm_status (*body)(void* data), void* data) noexcept;

/// The same for a function object whose result is a status of either kind, or void.
template <typename Body>
clientcomm_status atBorder(Body body) noexcept {
  return runAtBorder(
      [](void* data) {
        Body& run = *static_cast<Body*>(data);
        if constexpr (std::is_void_v<decltype(run())>) {
          run();
          return CLIENTCOMM_OK;
        } else {
          return static_cast<clientcomm_status>(run());
        }
      },
      &body);
}

/// Refuses NULL.
template <typename T>
T& required(T* pointer) {
  if (pointer == nullptr) throw Refusal{CLIENTCOMM_BAD_ARGUMENT};
  return *pointer;
}

/// The string in `text`. Refuses a length without bytes, and one that cannot be carried.
OptionalString stringOf(clientcomm_text text);
/// The same for a string that must be there and must not be empty.
std::string requiredString(clientcomm_text text);

/// The text of `string`, which must stay as it is.
inline clientcomm_text textOf(std::string_view string) noexcept {
  return {string.data(), string.size()};
}

}  // namespace clientcomm
