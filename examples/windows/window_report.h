#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace sample {

/// Tells tests what the windows of this application show, and where, so that they know what to
/// click and when: a file named after the application's identifier, in the folder that
/// SAMPLE_WINDOW_REPORT names.
class WindowReport {
 public:
  WindowReport();

  /// Whether the environment asks for a report.
  bool isWanted() const { return !path_.empty(); }

  /// Adds a window. Widgets that are added belong to the latest window.
  void addWindow(const std::string& title);
  /// Adds a widget. @param x, y, width, height in pixels, from the corner of the window.
  void addWidget(const std::string& name, const std::string& text, int x, int y, int width,
                 int height);

  /// Writes what was added since the last call, unless the file says so already.
  void write();

 private:
  std::string path_;
  nlohmann::json windows_ = nlohmann::json::object();
  std::string title_;
  std::string written_;
};

}  // namespace sample
