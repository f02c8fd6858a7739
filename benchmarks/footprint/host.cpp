#include <glib.h>
#include <unistd.h>

#ifdef WITH_CLIENTCOMM
#include <ClientComm/TQHPHelper.h>
#endif

// A program that runs a main loop and nothing else, built twice: as it stands, and with the library
// started in it.

int main() {
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
#ifdef WITH_CLIENTCOMM
  TQHPHelper::share();
#endif
  const auto tellThatItRuns = [](gpointer) -> gboolean {
    return write(STDOUT_FILENO, "ready\n", 6) == 6 ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
  };
  g_idle_add(tellThatItRuns, nullptr);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}
