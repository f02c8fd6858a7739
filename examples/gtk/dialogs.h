#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>

/// The product's further windows. Each returns at once; none runs a main loop of its own, which
/// would hold back the helper's calls.
namespace sample {

/// Has the user choose a file, and tells its path; tells nothing when the user chooses none.
void chooseFile(GtkWindow* parent, std::function<void(const std::string&)> chosen);

/// Asks a question. `answered` is called once; closing the window counts as no.
void askQuestion(GtkWindow* parent, const char* title, const char* question,
                 std::function<void(bool)> answered);

/// Shows the text of the HTML page at `path`; GTK itself has no widget for HTML.
void showPageWindow(GtkWindow* parent, const std::string& path);

}  // namespace sample
