#include "examples/windows/gtk_support.h"

#include <cmath>
#include <string_view>
#include <utility>

#include "examples/windows/window_report.h"

namespace sample {
namespace {

using Action = std::function<void()>;

constexpr int kSpace = 10;
constexpr guint kReportInMilliseconds = 50;

std::string textOf(GtkWidget* widget) {
  if (GTK_IS_LABEL(widget)) return gtk_label_get_text(GTK_LABEL(widget));
  if (GTK_IS_BUTTON(widget)) return gtk_button_get_label(GTK_BUTTON(widget));
  if (GTK_IS_SWITCH(widget)) return gtk_switch_get_active(GTK_SWITCH(widget)) ? "on" : "off";
  if (GTK_IS_PROGRESS_BAR(widget)) {
    return std::to_string(gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(widget)));
  }
  return "";
}

// GTK gives a widget without a name that of its type.
bool hasOwnName(GtkWidget* widget) {
  return std::string_view(gtk_widget_get_name(widget)) != G_OBJECT_TYPE_NAME(widget);
}

void addWidget(WindowReport& report, GtkWidget* widget, GtkNative* window) {
  graphene_rect_t bounds;
  if (gtk_widget_compute_bounds(widget, GTK_WIDGET(window), &bounds) == FALSE) return;
  double left = 0;  // of the window's content on its surface
  double top = 0;
  gtk_native_get_surface_transform(window, &left, &top);
  report.addWidget(gtk_widget_get_name(widget), textOf(widget),
                   static_cast<int>(std::lround(left + double{bounds.origin.x})),
                   static_cast<int>(std::lround(top + double{bounds.origin.y})),
                   static_cast<int>(std::lround(bounds.size.width)),
                   static_cast<int>(std::lround(bounds.size.height)));
}

void addWidgetsBelow(WindowReport& report, GtkWidget* parent, GtkNative* window) {
  for (GtkWidget* child = gtk_widget_get_first_child(parent); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    if (hasOwnName(child) && gtk_widget_get_mapped(child) != FALSE) {
      addWidget(report, child, window);
    }
    addWidgetsBelow(report, child, window);
  }
}

gboolean reportWindows(gpointer data) {
  auto& report = *static_cast<WindowReport*>(data);
  GListModel* const windows = gtk_window_get_toplevels();
  for (guint i = 0; i < g_list_model_get_n_items(windows); ++i) {
    auto* const window = static_cast<GtkWindow*>(g_list_model_get_item(windows, i));
    const char* const title = gtk_window_get_title(window);
    if (title != nullptr && gtk_widget_get_mapped(GTK_WIDGET(window)) != FALSE) {
      report.addWindow(title);
      addWidgetsBelow(report, GTK_WIDGET(window), GTK_NATIVE(window));
    }
    g_object_unref(window);
  }
  report.write();
  return G_SOURCE_CONTINUE;
}

}  // namespace

// The arguments of the signal, which follow the first here, are not looked at.
void connect(gpointer object, const char* signal, std::function<void()> action) {
  const auto run = +[](gpointer data) { (*static_cast<Action*>(data))(); };
  const auto destroy = +[](gpointer data, GClosure*) { delete static_cast<Action*>(data); };
  g_signal_connect_data(object, signal, G_CALLBACK(run), new Action(std::move(action)), destroy,
                        G_CONNECT_SWAPPED);
}

GtkWidget* makeButton(const char* name, const char* label, std::function<void()> action) {
  GtkWidget* const button = gtk_button_new_with_label(label);
  gtk_widget_set_name(button, name);
  connect(button, "clicked", std::move(action));
  return button;
}

GtkWidget* makeLabel(const char* name, const std::string& text) {
  GtkWidget* const label = gtk_label_new(text.c_str());
  gtk_widget_set_name(label, name);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_label_set_wrap(GTK_LABEL(label), TRUE);
  return label;
}

GtkWidget* makeBox(GtkOrientation orientation) {
  GtkWidget* const box = gtk_box_new(orientation, kSpace);
  if (orientation == GTK_ORIENTATION_HORIZONTAL) return box;
  gtk_widget_set_margin_start(box, 2 * kSpace);
  gtk_widget_set_margin_end(box, 2 * kSpace);
  gtk_widget_set_margin_top(box, 2 * kSpace);
  gtk_widget_set_margin_bottom(box, 2 * kSpace);
  return box;
}

void startWindowReport() {
  static auto* const report = new WindowReport();
  if (report->isWanted()) g_timeout_add(kReportInMilliseconds, reportWindows, report);
}

}  // namespace sample
