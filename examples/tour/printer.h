#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tour {

/// Prints the tour: a heading for each chapter, and one line for each step.
class Printer {
 public:
  Printer();

  void heading(const std::string& text) const;
  /// A step that held. @param status the library's, where the step has one.
  void step(const std::string& who, const std::string& what, std::optional<int> status,
            const std::string& detail);
  void failure(const std::string& text) const;
  /// What happened by itself, after the tour.
  void event(const std::string& who, const std::string& what, std::optional<int> status,
             const std::string& detail) const;
  void note(const std::string& text) const;

  int stepCount() const { return steps_; }
  double elapsedSeconds() const;

 private:
  void line(const char* mark, const char* colour, const std::string& who, const std::string& what,
            std::optional<int> status, const std::string& detail) const;

  std::chrono::steady_clock::time_point begin_;
  bool hasColour_;
  int steps_ = 0;
};

}  // namespace tour
