#pragma once

#include <span>

#include "ClientComm/platform/runtime.h"

namespace clientcomm {

/// Root of what the library's own kinds of `TQHPAppEventBase` keep.
struct ObjectState {
  ObjectState() = default;
  virtual ~ObjectState() = default;
  ObjectState(const ObjectState&) = delete;
  ObjectState& operator=(const ObjectState&) = delete;

  /// Carries out a call of `method`, with as many arguments as it takes. Lets exceptions through.
  virtual OptionalString invoke(Object& receiver, const Method& method,
                                std::span<const OptionalString> arguments) {
    return method.invoke(receiver, arguments);
  }
};

/// What an object keeps of which it is known that it keeps a `State`.
template <typename State>
State& stateAs(ObjectState& state) noexcept {
  // A host may be built without the type information that dynamic_cast needs.
  return static_cast<State&>(state);  // NOLINT(cppcoreguidelines-pro-type-static-cast-downcast)
}

}  // namespace clientcomm
