#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tour {

/// Prints the tour: a section for each chapter, one line for each step, and a summary of the
/// sections. Colours, and the line that shows what the tour waits for, are for terminals only.
class Printer {
 public:
  Printer();

  /// Begins a section of steps.
  void section(const std::string& title);
  /// A step that succeeded. @param status the library's, where the step has one.
  void step(const std::string& who, const std::string& what, std::optional<int> status,
            const std::string& outcome);
  /// The step that failed, which ends the tour.
  void failure(const std::string& text);
  /// Shows, until the next line, what the tour has been waiting for.
  void waiting(const std::string& awaited, std::chrono::milliseconds elapsed);
  /// One line for each section, and the result of all.
  void summary();

  /// Begins the events after the tour.
  void heading(const std::string& text);
  /// An event after the tour.
  void event(const std::string& who, const std::string& what, std::optional<int> status,
             const std::string& outcome);
  void note(const std::string& text);

 private:
  enum class Mark { kNone, kOk, kFail };

  struct Section {
    std::string title;
    double begin = 0;
    double end = 0;
    int steps = 0;
    bool isFailed = false;
  };

  double elapsedSeconds() const;
  void line(Mark mark, const std::string& who, const std::string& what, std::optional<int> status,
            const std::string& outcome);
  std::string marked(Mark mark) const;
  std::string styled(const char* style, const std::string& text) const;
  void clearWaiting();

  std::chrono::steady_clock::time_point begin_;
  bool isTerminal_;
  bool hasColour_;
  bool isWaitingShown_ = false;
  std::vector<Section> sections_;
};

}  // namespace tour
