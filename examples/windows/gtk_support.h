#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>

/// What the applications on GTK share.
namespace sample {

/// Runs `action` on each signal of `object` that expects no result.
void connect(gpointer object, const char* signal, std::function<void()> action);

/// A button with a name for the window report.
GtkWidget* makeButton(const char* name, const char* label, std::function<void()> action);

/// A label with a name for the window report.
GtkWidget* makeLabel(const char* name, const std::string& text);

/// A column, or a row, with space around and between what it holds.
GtkWidget* makeBox(GtkOrientation orientation);

/// Writes a WindowReport of this process's windows twenty times a second, if the environment asks
/// for one. A widget is in it that has a name of its own.
void startWindowReport();

}  // namespace sample
