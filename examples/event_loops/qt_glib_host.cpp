// A host on Qt 6 whose event dispatcher is GLib's main loop, which is what most distributions ship.
// The library is on it unasked. Without GLib it would get neither ticks nor calls: see qt_host.cpp.

#include <QGuiApplication>

#include "examples/event_loops/product.h"

int main(int argc, char** argv) {
  const QGuiApplication application(argc, argv);
  const sample::Product product;
  return QGuiApplication::exec();
}
