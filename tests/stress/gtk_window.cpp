#include "tests/stress/gtk_window.h"

#include <gtk/gtk.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>

namespace stress {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;

struct Animation {
  std::function<void()> whenDrawn;
  int frames = 0;
};

void draw(GtkDrawingArea* /*area*/, cairo_t* cairo, int width, int height, gpointer data) {
  auto& animation = *static_cast<Animation*>(data);
  ++animation.frames;
  animation.whenDrawn();
  cairo_set_source_rgb(cairo, 1, 1, 1);
  cairo_paint(cairo);
  cairo_set_source_rgb(cairo, 0, 0, 0.6);
  cairo_rectangle(cairo, animation.frames * 4 % width, 0, 40, height);
  cairo_fill(cairo);
}

gboolean drawNextFrame(GtkWidget* area, GdkFrameClock* /*clock*/, gpointer /*data*/) {
  gtk_widget_queue_draw(area);
  return G_SOURCE_CONTINUE;
}

}  // namespace

VirtualDisplay::VirtualDisplay()
    : server_(support::ChildProcess::spawn({CLIENTCOMM_XVFB, "-displayfd", "1", "-screen", "0",
                                            "800x600x24", "-nolisten", "tcp", "-noreset"})) {
  const auto number = server_.readLine();
  if (!number) return;
  isRunning_ = true;
  setenv("DISPLAY", (":" + *number).c_str(), 1);
  setenv("GDK_BACKEND", "x11", 1);
  setenv("GSK_RENDERER", "cairo", 1);
  setenv("GTK_A11Y", "none", 1);
  setenv("GSETTINGS_BACKEND", "memory", 1);
}

// Lets the server remove its socket and its lock file.
VirtualDisplay::~VirtualDisplay() {
  server_.signal(SIGTERM);
  server_.wait();
}

bool showAnimatedWindow(std::function<void()> whenDrawn) {
  if (gtk_init_check() == FALSE) return false;
  auto* const animation = new Animation{std::move(whenDrawn)};  // as long as the window
  GtkWidget* const area = gtk_drawing_area_new();
  gtk_drawing_area_set_draw_func(GTK_DRAWING_AREA(area), draw, animation,
                                 [](gpointer data) { delete static_cast<Animation*>(data); });
  gtk_widget_add_tick_callback(area, drawNextFrame, nullptr, nullptr);
  GtkWidget* const window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), kWidth, kHeight);
  gtk_window_set_child(GTK_WINDOW(window), area);
  gtk_window_present(GTK_WINDOW(window));
  return true;
}

}  // namespace stress
