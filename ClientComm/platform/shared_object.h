#pragma once

#include <functional>
#include <utility>

#include "ClientComm/platform/owner_thread.h"

namespace clientcomm {

/// The shared objects of this process.
class SharedObjects {
 public:
  /// Destroys all of them, the latest first; each is made anew on its next use. For tests that run
  /// one after another in one process. References to them are invalid afterwards.
  static void destroyAll();

  /// Adds what destroys an object. `SharedObject` does so itself.
  static void add(std::function<void()> destroy);
};

/// One object for the whole process, made on first use. The process's end does not destroy it,
/// since static objects of the host may use it until then. A static variable, for the thread that
/// owns the library.
template <typename T>
class SharedObject {
 public:
  constexpr SharedObject() noexcept = default;
  SharedObject(const SharedObject&) = delete;
  SharedObject& operator=(const SharedObject&) = delete;

  /// @param make gives a new object, on the first use only.
  /// @param destroy takes it back.
  template <typename Make, typename Destroy>
  T& get(Make make, Destroy destroy) {
    if (T* const object = existing()) return *object;
    T* const made = make();
    object_ = made;
    SharedObjects::add([this, destroy] {
      if (T* const object = std::exchange(object_, nullptr)) destroy(object);
    });
    return *made;
  }
  template <typename Make>
  T& get(Make make) {
    return get(make, [](T* object) { delete object; });
  }
  T& get() {
    return get([] { return new T; });
  }

  /// The object; null before its first use.
  T* existing() const noexcept {
    requireOwnerThread();
    return object_;
  }

 private:
  T* object_ = nullptr;
};

}  // namespace clientcomm
