#pragma once

#include <gtk/gtk.h>

#include <nlohmann/json.hpp>
#include <string>

namespace sample {

class Application;

/// The helper's window: the products that it works for, what it has collected, and its outbox. It
/// is on the display while the helper's preferences say that the helper is shown.
class HelperWindow {
 public:
  explicit HelperWindow(Application& application);
  ~HelperWindow();
  HelperWindow(const HelperWindow&) = delete;
  HelperWindow& operator=(const HelperWindow&) = delete;

 private:
  /// A heading with a list of lines below it.
  GtkWidget* addList(GtkWidget* content, const char* name, const char* heading);
  void refresh();
  void refreshLater();
  void showState(const nlohmann::json& state);
  static gboolean onCloseRequest(GtkWindow* window, gpointer self);

  Application& application_;
  GtkWidget* window_;
  GtkWidget* products_ = nullptr;
  GtkWidget* collected_ = nullptr;
  GtkWidget* outbox_ = nullptr;
  guint refresh_ = 0;
  guint timer_ = 0;
};

}  // namespace sample
