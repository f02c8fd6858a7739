#pragma once

#include <functional>

namespace clientcomm {

class Object;

/// Notified of each object that is destroyed, to drop references to it.
class ObjectObserver {
 public:
  /// Must not throw. Of the object only the address may be used.
  using Action = std::function<void(const Object& object)>;

  explicit ObjectObserver(Action whenDestroyed);
  ~ObjectObserver();
  ObjectObserver(const ObjectObserver&) = delete;
  ObjectObserver& operator=(const ObjectObserver&) = delete;

 private:
  friend class Object;
  Action whenDestroyed_;
};

}  // namespace clientcomm
