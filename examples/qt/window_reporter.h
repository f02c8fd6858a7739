#pragma once

#include <QTimer>

#include "examples/windows/window_report.h"

namespace sample {

/// Writes a WindowReport of this process's windows twenty times a second, if the environment asks
/// for one. A widget is in it that has a name.
class WindowReporter {
 public:
  WindowReporter();

 private:
  void report();

  WindowReport report_;
  QTimer timer_;
};

}  // namespace sample
