#include "examples/windows/window_report.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "ClientComm/platform/bundle.h"

namespace sample {

WindowReport::WindowReport() {
  const char* const folder = std::getenv("SAMPLE_WINDOW_REPORT");
  const auto identifier = clientcomm::Bundle::mainBundle().bundleIdentifier();
  if (folder != nullptr && identifier) path_ = std::string(folder) + "/" + *identifier + ".json";
}

void WindowReport::addWindow(const std::string& title) {
  title_ = title;
  windows_[title_] = nlohmann::json::object();
}

void WindowReport::addWidget(const std::string& name, const std::string& text, int x, int y,
                             int width, int height) {
  windows_[title_][name] = {
      {"text", text}, {"x", x}, {"y", y}, {"width", width}, {"height", height}};
}

// A reader never sees half of it.
void WindowReport::write() {
  const nlohmann::json report = {{"pid", getpid()}, {"windows", windows_}};
  windows_ = nlohmann::json::object();
  std::string text = report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
  if (text == written_) return;
  const std::string partial = path_ + ".partial";
  std::ofstream(partial) << text;
  if (std::rename(partial.c_str(), path_.c_str()) == 0) written_ = std::move(text);
}

}  // namespace sample
