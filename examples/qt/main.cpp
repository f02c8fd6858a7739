// A product with a window of Qt 6: what its helper does for it, and what becomes of that. It works
// on every event dispatcher of Qt; see docs/writing-a-host.md.

#include <ClientComm/event_loop.h>

#include <QApplication>
#include <QSocketNotifier>

#include "examples/qt/product_window.h"
#include "examples/qt/window_reporter.h"

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  const int descriptor = clientcomm::openEventLoop();  // before anything else of the library
  if (descriptor < 0) return 1;
  const QSocketNotifier notifier(descriptor, QSocketNotifier::Read);
  QObject::connect(&notifier, &QSocketNotifier::activated, [] { clientcomm::runEventLoop(); });
  sample::WindowReporter reporter;
  sample::ProductWindow window;
  window.show();
  return QApplication::exec();
}
