// A product with a window of GTK 4: what its helper does for it, and what becomes of that.

#include <gtk/gtk.h>

#include <cstdio>

#include "examples/gtk/product_window.h"
#include "examples/windows/gtk_support.h"

int main() {
  if (gtk_init_check() == FALSE) {
    std::fputs("GtkProduct: there is no display\n", stderr);
    return 1;
  }
  sample::startWindowReport();
  sample::ProductWindow window;
  window.run();
  return 0;
}
