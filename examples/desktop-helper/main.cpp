// The sample helper with a window of GTK 4, which hosts show and hide.

#include <gtk/gtk.h>

#include <optional>

#include "examples/desktop-helper/helper_window.h"
#include "examples/helper/application.h"
#include "examples/windows/gtk_support.h"

int main(int count, char** arguments) {
  if (!sample::Application::isWanted(count, arguments)) return 0;
  sample::Application& application = sample::Application::shared();
  std::optional<sample::HelperWindow> window;
  if (gtk_init_check() != FALSE) {
    sample::startWindowReport();
    window.emplace(application);
  } else {
    g_warning("there is no display: the helper works without its window");
  }
  return application.run();
}
