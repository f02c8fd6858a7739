#include "examples/gtk/dialogs.h"

#include <memory>
#include <utility>

#include "examples/gtk/page_text.h"
#include "examples/windows/gtk_support.h"

namespace sample {
namespace {

constexpr int kPageWidth = 420;
constexpr int kQuestionWidth = 320;

GtkWidget* makeDialog(GtkWindow* parent, const char* title, int width) {
  GtkWidget* const dialog = gtk_window_new();
  gtk_window_set_title(GTK_WINDOW(dialog), title);
  gtk_window_set_transient_for(GTK_WINDOW(dialog), parent);
  gtk_window_set_destroy_with_parent(GTK_WINDOW(dialog), TRUE);
  gtk_window_set_default_size(GTK_WINDOW(dialog), width, -1);
  return dialog;
}

using Chosen = std::function<void(const std::string&)>;

void onChosen(GtkNativeDialog* dialog, int response, gpointer data) {
  const std::unique_ptr<Chosen> chosen(static_cast<Chosen*>(data));
  GFile* const file = response == GTK_RESPONSE_ACCEPT
                          ? gtk_file_chooser_get_file(GTK_FILE_CHOOSER(dialog))
                          : nullptr;
  const std::unique_ptr<char, decltype(&g_free)> path(
      file != nullptr ? g_file_get_path(file) : nullptr, &g_free);
  if (path) (*chosen)(path.get());
  if (file != nullptr) g_object_unref(file);
  g_object_unref(dialog);
}

}  // namespace

void chooseFile(GtkWindow* parent, Chosen chosen) {
  GtkFileChooserNative* const dialog = gtk_file_chooser_native_new(
      "Choose a file", parent, GTK_FILE_CHOOSER_ACTION_OPEN, "Upload", "Cancel");
  gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(dialog), TRUE);
  g_signal_connect(dialog, "response", G_CALLBACK(onChosen), new Chosen(std::move(chosen)));
  gtk_native_dialog_show(GTK_NATIVE_DIALOG(dialog));
}

void askQuestion(GtkWindow* parent, const char* title, const char* question,
                 std::function<void(bool)> answered) {
  GtkWidget* const dialog = makeDialog(parent, title, kQuestionWidth);
  gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
  const auto isReady = std::make_shared<bool>(false);
  const auto isAnswered = std::make_shared<bool>(false);
  GtkWidget* const buttons = makeBox(GTK_ORIENTATION_HORIZONTAL);
  gtk_box_append(GTK_BOX(buttons), makeButton("yes", "Upgrade now", [dialog, isReady] {
                   *isReady = true;
                   gtk_window_close(GTK_WINDOW(dialog));
                 }));
  gtk_box_append(GTK_BOX(buttons),
                 makeButton("no", "Later", [dialog] { gtk_window_close(GTK_WINDOW(dialog)); }));
  GtkWidget* const content = makeBox(GTK_ORIENTATION_VERTICAL);
  gtk_box_append(GTK_BOX(content), makeLabel("question", question));
  gtk_box_append(GTK_BOX(content), buttons);
  gtk_window_set_child(GTK_WINDOW(dialog), content);
  connect(dialog, "destroy", [isReady, isAnswered, answered = std::move(answered)] {
    if (!std::exchange(*isAnswered, true)) answered(*isReady);
  });
  gtk_window_present(GTK_WINDOW(dialog));
}

void showPageWindow(GtkWindow* parent, const std::string& path) {
  const PageText page = readPage(path);
  GtkWidget* const window = makeDialog(parent, page.title.c_str(), kPageWidth);
  GtkWidget* const content = makeBox(GTK_ORIENTATION_VERTICAL);
  gtk_box_append(GTK_BOX(content), makeLabel("page", page.body));
  gtk_box_append(GTK_BOX(content), makeButton("close-page", "Close", [window] {
                   gtk_window_destroy(GTK_WINDOW(window));
                 }));
  gtk_window_set_child(GTK_WINDOW(window), content);
  gtk_window_present(GTK_WINDOW(window));
}

}  // namespace sample
