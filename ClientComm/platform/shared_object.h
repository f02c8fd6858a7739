#pragma once

#include <atomic>
#include <functional>
#include <mutex>

namespace clientcomm {

/// The shared objects of this process.
class SharedObjects {
 public:
  /// Destroys all of them, the latest first; each is made anew on its next use. For tests that run
  /// one after another in one process. References to them are invalid afterwards.
  static void destroyAll();

  /// Adds what destroys an object. `SharedObject` does so itself.
  static void add(std::function<void()> destroy);

  /// Held while a shared object is made.
  static std::recursive_mutex& creation();
};

/// One object for the whole process, made on first use. The process's end does not destroy it,
/// since static objects of the host may use it until then. A static variable.
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
    const std::lock_guard lock(SharedObjects::creation());
    if (T* const object = existing()) return *object;
    T* const made = make();
    object_.store(made, std::memory_order_release);
    SharedObjects::add([this, destroy] {
      if (T* const object = object_.exchange(nullptr)) destroy(object);
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
  T* existing() const noexcept { return object_.load(std::memory_order_acquire); }

 private:
  std::atomic<T*> object_ = nullptr;
};

}  // namespace clientcomm
