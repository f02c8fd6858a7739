#include "examples/tour/printer.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace tour {
namespace {

constexpr const char kGreen[] = "\033[32m";
constexpr const char kRed[] = "\033[31m";
constexpr const char kBold[] = "\033[1m";
constexpr const char kDim[] = "\033[2m";
constexpr const char kPlain[] = "\033[0m";

}  // namespace

Printer::Printer()
    : begin_(std::chrono::steady_clock::now()),
      hasColour_(isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr) {}

double Printer::elapsedSeconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

void Printer::heading(const std::string& text) const {
  std::printf("\n%s%s%s\n", hasColour_ ? kBold : "", text.c_str(), hasColour_ ? kPlain : "");
  std::fflush(stdout);
}

void Printer::step(const std::string& who, const std::string& what, std::optional<int> status,
                   const std::string& detail) {
  ++steps_;
  line("ok", kGreen, who, what, status, detail);
}

void Printer::failure(const std::string& text) const {
  line("FAIL", kRed, "tour", "step", std::nullopt, text);
}

void Printer::event(const std::string& who, const std::string& what, std::optional<int> status,
                    const std::string& detail) const {
  line("", kPlain, who, what, status, detail);
}

void Printer::note(const std::string& text) const {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

void Printer::line(const char* mark, const char* colour, const std::string& who,
                   const std::string& what, std::optional<int> status,
                   const std::string& detail) const {
  const std::string number = status ? std::to_string(*status) : "-";
  std::printf("%s%8.3f s%s  %s%-4s%s  %-10s  %-20s  %6s  %s\n", hasColour_ ? kDim : "",
              elapsedSeconds(), hasColour_ ? kPlain : "", hasColour_ ? colour : "", mark,
              hasColour_ ? kPlain : "", who.c_str(), what.c_str(), number.c_str(), detail.c_str());
  std::fflush(stdout);
}

}  // namespace tour
