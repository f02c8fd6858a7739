#pragma once

#include <functional>
#include <memory>

namespace clientcomm {

/// Work on a thread of its own, which ends with the work. The process's end does not wait for it.
class BackgroundTask {
 public:
  /// Starts `work`, which uses nothing of the library that belongs to its thread. What it throws is
  /// dropped.
  /// @throws std::system_error where there can be no further thread; nothing is done then.
  explicit BackgroundTask(std::function<void()> work);
  /// Does not end the work.
  ~BackgroundTask();
  BackgroundTask(const BackgroundTask&) = delete;
  BackgroundTask& operator=(const BackgroundTask&) = delete;

  /// Whether the work is over, with all that it has done visible to the caller, and `work`
  /// destroyed.
  bool isDone() const noexcept;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace clientcomm
