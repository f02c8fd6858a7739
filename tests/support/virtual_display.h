#pragma once

#include "tests/support/child_process.h"

namespace support {

/// An X server without a screen, and this process's environment for GTK and Qt to use it.
class VirtualDisplay {
 public:
  VirtualDisplay();
  ~VirtualDisplay();
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  bool isRunning() const { return isRunning_; }

 private:
  ChildProcess server_;
  bool isRunning_ = false;
};

}  // namespace support
