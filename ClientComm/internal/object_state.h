#pragma once

namespace clientcomm {

/// Root of what the library's own kinds of `TQHPAppEventBase` keep.
struct ObjectState {
  ObjectState() = default;
  virtual ~ObjectState() = default;
  ObjectState(const ObjectState&) = delete;
  ObjectState& operator=(const ObjectState&) = delete;
};

}  // namespace clientcomm
