#pragma once

#include "ClientComm/c/border.h"

namespace clientcomm {

/// What a handle of the C interface stands for. Made by `new`, except for calls.
class Handled {
 public:
  enum class Kind : unsigned char { kString, kUpgradeDelegate, kClass, kCall, kQuery };

  explicit Handled(Kind kind) noexcept : kind_(kind) {}
  virtual ~Handled() = default;
  Handled(const Handled&) = delete;
  Handled& operator=(const Handled&) = delete;

 private:
  friend class Handles;
  friend class InUse;

  Kind kind_;
  bool isReleased_ = false;
  unsigned uses_ = 0;
};

/// Keeps an object while the program's code runs on its behalf, which may release it.
class InUse {
 public:
  explicit InUse(Handled& object) noexcept : object_(object) { ++object.uses_; }
  ~InUse() {
    if (--object_.uses_ == 0 && object_.isReleased_) delete &object_;
  }
  InUse(const InUse&) = delete;
  InUse& operator=(const InUse&) = delete;

 private:
  Handled& object_;
};

/// The objects that programs in C hold by handles. A handle is a number in the shape of a pointer
/// and is never given out again, so that every use after its release is noticed.
class Handles {
 public:
  /// @return the handle of `object`, which stays the caller's until it is released.
  static void* add(Handled& object);
  /// The object behind `handle`. Refuses NULL, stale handles and those of another kind.
  static Handled& find(const void* handle, Handled::Kind kind);
  /// Ends the use of `handle`; the object stays.
  static void remove(const void* handle) noexcept;
  /// Ends the use of `handle` and deletes the object, as soon as it is in use no more.
  static void release(const void* handle, Handled::Kind kind);
  /// Calls `use` for each object of `kind`, the eldest first. It must not add or remove one.
  static void forEach(Handled::Kind kind, void (*use)(Handled& object));
};

/// The object of the type T behind `handle`.
template <typename T>
T& handled(const void* handle) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): the kind tells the type
  return static_cast<T&>(Handles::find(handle, T::kKind));
}

}  // namespace clientcomm
