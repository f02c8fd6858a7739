#pragma once

#include <sys/types.h>

#include <functional>

namespace support {

/// A forked copy of this process that runs `body` and stops before every system call that changes a
/// file, a folder or a lock, so that a test can end it there.
class SteppedProcess {
 public:
  explicit SteppedProcess(const std::function<void()>& body);
  ~SteppedProcess();
  SteppedProcess(const SteppedProcess&) = delete;
  SteppedProcess& operator=(const SteppedProcess&) = delete;

  /// Whether this machine lets a process be traced.
  bool isTraced() const { return pid_ > 0; }

  /// Runs it up to its next stop.
  /// @return false when it ended instead.
  bool step();

  /// Ends it by SIGKILL, before the system call at which it stopped.
  void kill();

 private:
  bool resume();

  pid_t pid_ = -1;
};

}  // namespace support
