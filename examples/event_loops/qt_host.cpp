// A host on Qt 6, whatever its event dispatcher is: GLib's main loop, or Qt's own where Qt was
// built without GLib or the environment says QT_NO_GLIB=1.

#include <ClientComm/event_loop.h>

#include <QGuiApplication>
#include <QSocketNotifier>

#include "examples/event_loops/product.h"

int main(int argc, char** argv) {
  const QGuiApplication application(argc, argv);
  const int descriptor = clientcomm::openEventLoop();  // before anything else of the library
  if (descriptor < 0) return 1;
  const QSocketNotifier notifier(descriptor, QSocketNotifier::Read);
  QObject::connect(&notifier, &QSocketNotifier::activated, [] { clientcomm::runEventLoop(); });
  const sample::Product product;
  return QGuiApplication::exec();
}
