#include "tests/stress/gtk_window.h"

#include <gtk/gtk.h>

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
