#include "examples/host/event_log.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

namespace sample {
namespace {

std::string timeOfDay() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                static_cast<int>(milliseconds));
  return text;
}

// A text from outside must not look like a line of its own.
std::string onOneLine(std::string_view text) {
  std::string line(text);
  for (char& character : line) {
    if (character == '\n' || character == '\r') character = ' ';
  }
  return line;
}

}  // namespace

void logEvent(std::string_view who, std::string_view what, std::optional<clientcomm::OSErr> status,
              std::string_view detail) {
  const std::string number = status ? std::to_string(*status) : "-";
  std::printf("%s  %-8s  %-20s  %6s  %s\n", timeOfDay().c_str(), std::string(who).c_str(),
              std::string(what).c_str(), number.c_str(), onOneLine(detail).c_str());
  std::fflush(stdout);
}

}  // namespace sample
