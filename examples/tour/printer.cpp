#include "examples/tour/printer.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tour {
namespace {

constexpr const char kGreen[] = "\033[32m";
constexpr const char kRed[] = "\033[31m";
constexpr const char kBold[] = "\033[1m";
constexpr const char kDim[] = "\033[2m";
constexpr const char kPlain[] = "\033[0m";
constexpr const char kClearLine[] = "\r\033[K";

// Leaves room for the seconds on a line of 80 columns.
constexpr std::size_t kLongestAwaited = 55;

bool writesToTerminal() {
  const char* const terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

}  // namespace

Printer::Printer()
    : begin_(std::chrono::steady_clock::now()),
      isTerminal_(writesToTerminal()),
      hasColour_(isTerminal_ && std::getenv("NO_COLOR") == nullptr) {}

double Printer::elapsedSeconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

void Printer::section(const std::string& title) {
  heading(std::to_string(sections_.size() + 1) + ". " + title);
  const double now = elapsedSeconds();
  sections_.push_back({.title = title, .begin = now, .end = now});
}

void Printer::step(const std::string& who, const std::string& what, std::optional<int> status,
                   const std::string& outcome) {
  Section& section = sections_.back();
  ++section.steps;
  section.end = elapsedSeconds();
  line(Mark::kOk, who, what, status, outcome);
}

void Printer::failure(const std::string& text) {
  if (!sections_.empty()) {
    sections_.back().isFailed = true;
    sections_.back().end = elapsedSeconds();
  }
  line(Mark::kFail, "tour", "failed step", std::nullopt, text);
}

void Printer::waiting(const std::string& awaited, std::chrono::milliseconds elapsed) {
  if (!isTerminal_) return;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
  std::printf("%s  ..  waiting for %.*s, %lld s", kClearLine, static_cast<int>(kLongestAwaited),
              awaited.c_str(), static_cast<long long>(seconds));
  std::fflush(stdout);
  isWaitingShown_ = true;
}

void Printer::summary() {
  heading("Summary");
  int steps = 0;
  bool isFailed = sections_.empty();
  for (const Section& section : sections_) {
    std::printf("  %s  %-60s  %3d steps  %6.1f s\n",
                marked(section.isFailed ? Mark::kFail : Mark::kOk).c_str(), section.title.c_str(),
                section.steps, section.end - section.begin);
    steps += section.steps;
    isFailed = isFailed || section.isFailed;
  }
  char result[96];
  std::snprintf(result, sizeof result, "  %d steps, %s, in %.1f s", steps,
                isFailed ? "then one failed" : "all of them succeeded", elapsedSeconds());
  note(styled(isFailed ? kRed : kGreen, result));
}

void Printer::heading(const std::string& text) { note("\n" + styled(kBold, text)); }

void Printer::event(const std::string& who, const std::string& what, std::optional<int> status,
                    const std::string& outcome) {
  line(Mark::kNone, who, what, status, outcome);
}

void Printer::note(const std::string& text) {
  clearWaiting();
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

void Printer::line(Mark mark, const std::string& who, const std::string& what,
                   std::optional<int> status, const std::string& outcome) {
  char time[32];
  std::snprintf(time, sizeof time, "%6.1f s", elapsedSeconds());
  char step[96];
  std::snprintf(step, sizeof step, "%-10s  %-19s", who.c_str(), what.c_str());
  const std::string text =
      status.value_or(0) == 0 ? outcome : "status " + std::to_string(*status) + ": " + outcome;
  note("  " + marked(mark) + "  " + styled(kDim, time) + "  " + step + "  " + text);
}

std::string Printer::marked(Mark mark) const {
  if (mark == Mark::kOk) return styled(kGreen, "ok  ");
  if (mark == Mark::kFail) return styled(kRed, "FAIL");
  return "    ";
}

std::string Printer::styled(const char* style, const std::string& text) const {
  return hasColour_ ? style + text + kPlain : text;
}

void Printer::clearWaiting() {
  if (isWaitingShown_) std::fputs(kClearLine, stdout);
  isWaitingShown_ = false;
}

}  // namespace tour
