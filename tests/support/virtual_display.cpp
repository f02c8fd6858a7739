#include "tests/support/virtual_display.h"

#include <csignal>
#include <cstdlib>
#include <string>

namespace support {

VirtualDisplay::VirtualDisplay()
    : server_(ChildProcess::spawn({CLIENTCOMM_XVFB, "-displayfd", "1", "-screen", "0",
                                   "1280x800x24", "-nolisten", "tcp", "-noreset"})) {
  const auto number = server_.readLine();
  if (!number) return;
  isRunning_ = true;
  setenv("DISPLAY", (":" + *number).c_str(), 1);
  unsetenv("WAYLAND_DISPLAY");
  setenv("GDK_BACKEND", "x11", 1);
  setenv("QT_QPA_PLATFORM", "xcb", 1);
  setenv("GSK_RENDERER", "cairo", 1);
  setenv("GTK_A11Y", "none", 1);
  setenv("GSETTINGS_BACKEND", "memory", 1);
}

// Lets the server remove its socket and its lock file.
VirtualDisplay::~VirtualDisplay() {
  server_.signal(SIGTERM);
  server_.wait();
}

}  // namespace support
