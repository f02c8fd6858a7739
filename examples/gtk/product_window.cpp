#include "examples/gtk/product_window.h"

#include "examples/gtk/dialogs.h"
#include "examples/windows/gtk_support.h"

namespace sample {
namespace {

constexpr int kWidth = 480;
constexpr guint kRefreshInMilliseconds = 250;

void setText(GtkWidget* label, const std::string& text) {
  gtk_label_set_text(GTK_LABEL(label), text.c_str());
}

}  // namespace

ProductWindow::ProductWindow()
    : model_(*this), loop_(g_main_loop_new(nullptr, FALSE)), window_(gtk_window_new()) {
  gtk_window_set_title(GTK_WINDOW(window_), "GTK product");
  gtk_window_set_default_size(GTK_WINDOW(window_), kWidth, -1);
  gtk_window_set_child(GTK_WINDOW(window_), makeContent());
  connect(window_, "destroy", [this] { g_main_loop_quit(loop_); });
  const GSourceFunc refresh = [](gpointer model) -> gboolean {
    static_cast<ProductModel*>(model)->refresh();
    return G_SOURCE_CONTINUE;
  };
  timer_ = g_timeout_add(kRefreshInMilliseconds, refresh, &model_);
  gtk_window_present(GTK_WINDOW(window_));
  model_.start();
}

ProductWindow::~ProductWindow() {
  g_source_remove(timer_);
  g_main_loop_unref(loop_);
}

void ProductWindow::run() { g_main_loop_run(loop_); }

GtkWidget* ProductWindow::makeContent() {
  GtkWidget* const content = makeBox(GTK_ORIENTATION_VERTICAL);
  status_ = makeLabel("status", model_.status());
  outcome_ = makeLabel("outcome", "");
  uploadText_ = makeLabel("upload", "");
  uploadBar_ = gtk_progress_bar_new();
  gtk_widget_set_name(uploadBar_, "progress");
  GtkWidget* const quit =
      makeButton("quit", "Quit", [this] { gtk_window_destroy(GTK_WINDOW(window_)); });
  for (GtkWidget* const part : {status_, makeHelperButtons(), makeTipsSwitch(),
                                makeServiceButtons(), uploadText_, uploadBar_, outcome_, quit}) {
    gtk_box_append(GTK_BOX(content), part);
  }
  return content;
}

GtkWidget* ProductWindow::makeHelperButtons() {
  GtkWidget* const row = makeBox(GTK_ORIENTATION_HORIZONTAL);
  gtk_box_append(GTK_BOX(row), makeButton("show", "Show helper", [this] { model_.showHelper(); }));
  gtk_box_append(GTK_BOX(row), makeButton("hide", "Hide helper", [this] { model_.hideHelper(); }));
  return row;
}

GtkWidget* ProductWindow::makeTipsSwitch() {
  GtkWidget* const tips = gtk_switch_new();
  gtk_widget_set_name(tips, "tips");
  gtk_switch_set_active(GTK_SWITCH(tips), model_.areTipsOn() ? TRUE : FALSE);
  connect(tips, "notify::active",
          [this, tips] { model_.setTips(gtk_switch_get_active(GTK_SWITCH(tips)) != FALSE); });
  GtkWidget* const row = makeBox(GTK_ORIENTATION_HORIZONTAL);
  gtk_box_append(GTK_BOX(row), gtk_label_new("Tips"));
  gtk_box_append(GTK_BOX(row), tips);
  return row;
}

GtkWidget* ProductWindow::makeServiceButtons() {
  GtkWidget* const row = makeBox(GTK_ORIENTATION_HORIZONTAL);
  gtk_box_append(GTK_BOX(row), makeButton("choose", "Upload a file…", [this] { chooseFile(); }));
  gtk_box_append(GTK_BOX(row),
                 makeButton("upgrade", "Look for an upgrade", [this] { model_.lookForUpgrade(); }));
  gtk_box_append(GTK_BOX(row),
                 makeButton("error-page", "Error page", [this] { model_.fetchErrorPage(); }));
  return row;
}

void ProductWindow::chooseFile() {
  sample::chooseFile(GTK_WINDOW(window_), [this](const std::string& path) { model_.upload(path); });
}

void ProductWindow::modelChanged() {
  setText(status_, model_.status());
  setText(outcome_, model_.outcome());
  setText(uploadText_, model_.uploadProgress().text);
  gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(uploadBar_), model_.uploadProgress().fraction);
}

void ProductWindow::askForUpgrade() {
  askQuestion(GTK_WINDOW(window_), "Upgrade",
              "The helper is about to upgrade this product. Is the product ready?",
              [this](bool isReady) { model_.answerUpgrade(isReady); });
}

void ProductWindow::showPage(const std::string& path) { showPageWindow(GTK_WINDOW(window_), path); }

}  // namespace sample
