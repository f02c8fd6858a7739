#pragma once

#include <memory>

namespace clientcomm {

/// A run loop that the host turns. While there is one, every timer and the endpoint are put on it
/// in place of the system's own run loop. At most one in a process.
class RunLoop {
 public:
  /// Whether a timer or the endpoint has been put on the system's run loop.
  static bool isSystemsInUse() noexcept;

  /// @return null when the process is out of descriptors.
  static std::unique_ptr<RunLoop> make();
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// A descriptor that is readable while something is due.
  int descriptor() const noexcept;

  /// Whether this process is a forked copy of the one that made the loop.
  bool isForked() const noexcept;

  /// Does what is due, without waiting. May be called from what it runs.
  void turn();

 private:
  struct State;
  explicit RunLoop(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace clientcomm
