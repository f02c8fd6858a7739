#pragma once

#include <functional>

#include "tests/support/child_process.h"

/// A window of GTK on an X server without a screen. GTK draws by the processor.
namespace stress {

/// An X server without a screen, and this process's environment for GTK to use it.
class VirtualDisplay {
 public:
  VirtualDisplay();
  ~VirtualDisplay();
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  bool isRunning() const { return isRunning_; }

 private:
  support::ChildProcess server_;
  bool isRunning_ = false;
};

/// Shows a window, 640 x 480, in which a bar moves from frame to frame; `whenDrawn` runs with each.
/// @return false when there is no display.
bool showAnimatedWindow(std::function<void()> whenDrawn);

}  // namespace stress
