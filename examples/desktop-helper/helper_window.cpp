#include "examples/desktop-helper/helper_window.h"

#include "examples/desktop-helper/state_text.h"
#include "examples/helper/application.h"
#include "examples/windows/gtk_support.h"

namespace sample {
namespace {

constexpr int kWidth = 560;
constexpr int kListHeight = 90;
constexpr int kListMargin = 6;
constexpr guint kRefreshInMilliseconds = 500;

void setText(GtkWidget* label, const std::string& text) {
  gtk_label_set_text(GTK_LABEL(label), text.empty() ? "None" : text.c_str());
}

}  // namespace

HelperWindow::HelperWindow(Application& application)
    : application_(application), window_(gtk_window_new()) {
  gtk_window_set_title(GTK_WINDOW(window_), "Helper");
  gtk_window_set_default_size(GTK_WINDOW(window_), kWidth, -1);
  GtkWidget* const content = makeBox(GTK_ORIENTATION_VERTICAL);
  products_ = addList(content, "products", "Products");
  collected_ = addList(content, "collected", "Collected usage data");
  outbox_ = addList(content, "outbox", "Outbox");
  gtk_box_append(GTK_BOX(content),
                 makeButton("close", "Hide", [this] { gtk_window_close(GTK_WINDOW(window_)); }));
  gtk_window_set_child(GTK_WINDOW(window_), content);
  g_signal_connect(window_, "close-request", G_CALLBACK(onCloseRequest), this);
  application_.onChange([this] { refreshLater(); });
  refresh();
}

HelperWindow::~HelperWindow() {
  application_.onChange({});
  if (refresh_ != 0) g_source_remove(refresh_);
  if (timer_ != 0) g_source_remove(timer_);
  gtk_window_destroy(GTK_WINDOW(window_));
}

GtkWidget* HelperWindow::addList(GtkWidget* content, const char* name, const char* heading) {
  GtkWidget* const list = makeLabel(name, "");
  gtk_label_set_yalign(GTK_LABEL(list), 0);
  gtk_label_set_selectable(GTK_LABEL(list), TRUE);
  gtk_widget_set_can_focus(list, FALSE);
  gtk_widget_set_margin_start(list, kListMargin);
  gtk_widget_set_margin_end(list, kListMargin);
  GtkWidget* const scrolled = gtk_scrolled_window_new();
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scrolled), list);
  gtk_scrolled_window_set_min_content_height(GTK_SCROLLED_WINDOW(scrolled), kListHeight);
  gtk_widget_set_vexpand(scrolled, TRUE);
  GtkWidget* const frame = gtk_frame_new(heading);
  gtk_frame_set_child(GTK_FRAME(frame), scrolled);
  gtk_box_append(GTK_BOX(content), frame);
  return list;
}

// After the host's call, and once for a burst of calls.
void HelperWindow::refreshLater() {
  if (refresh_ != 0) return;
  const GSourceFunc run = [](gpointer data) -> gboolean {
    auto* const self = static_cast<HelperWindow*>(data);
    self->refresh_ = 0;
    self->refresh();
    return G_SOURCE_REMOVE;
  };
  refresh_ = g_idle_add(run, this);
}

// A window on the display also follows what changes without a call: how far a delivery is.
void HelperWindow::refresh() {
  const bool isShown = application_.preferences().isShown();
  if (isShown) {
    showState(application_.state());
    if (gtk_widget_get_visible(window_) == FALSE) gtk_window_present(GTK_WINDOW(window_));
  } else {
    gtk_widget_set_visible(window_, FALSE);
  }
  if (isShown == (timer_ != 0)) return;
  if (timer_ != 0) g_source_remove(timer_);
  const GSourceFunc again = [](gpointer data) -> gboolean {
    static_cast<HelperWindow*>(data)->refreshLater();
    return G_SOURCE_CONTINUE;
  };
  timer_ = isShown ? g_timeout_add(kRefreshInMilliseconds, again, this) : 0;
}

// Called by GTK, which no exception may reach: the helper's work does not end with its window.
void HelperWindow::showState(const nlohmann::json& state) {
  try {
    setText(products_, productLines(state));
    setText(collected_, collectedLines(state));
    setText(outbox_, deliveryLines(application_.outbox().deliveries(), state));
  } catch (const std::exception& error) {
    setText(outbox_, error.what());
  }
}

// The user has hidden the helper, which it remembers as if a host had.
gboolean HelperWindow::onCloseRequest(GtkWindow* /*window*/, gpointer data) {
  auto* const self = static_cast<HelperWindow*>(data);
  try {
    self->application_.preferences().setShown(false);
  } catch (const std::exception& error) {
    self->application_.noteFailure(error.what());
  }
  self->refreshLater();
  return TRUE;
}

}  // namespace sample
