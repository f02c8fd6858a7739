// A host that runs a GLib main loop, as every GTK program does. The library is on it unasked.

#include <glib.h>

#include "examples/event_loops/product.h"

int main() {
  const sample::Product product;
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
