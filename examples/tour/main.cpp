#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "examples/tour/tour.h"

namespace {

int usage(int status) {
  std::printf(
      "Use: tour [--once]\n\n"
      "Takes a sample product through its life with a helper, in a private folder with processes "
      "of\n"
      "its own, and checks every step. Stays afterwards and shows what happens, until Ctrl-C;\n"
      "with --once it ends, with exit status 0 only if every step succeeded.\n");
  return status;
}

void stay(tour::Stage& stage, tour::Printer& printer) {
  printer.heading("From here on, what happens by itself (Ctrl-C ends it)");
  printer.note("The private folder is " + stage.folder());
  stage.watch([&](const tour::HostProcess& host, const tour::HostEvent& event) {
    printer.event(event.who == "host" ? host.name() : event.who, event.what, event.status,
                  event.detail);
  });
}

int run(bool once, tour::Printer& printer) {
  tour::Stage stage([&](const std::string& awaited, std::chrono::milliseconds elapsed) {
    printer.waiting(awaited, elapsed);
  });
  bool isComplete = false;
  try {
    tour::Tour tour(stage, printer);
    tour.takeLife();
    tour.takeServices();
    if (once) tour.takeEnd();
    printer.summary();
    isComplete = true;
    if (!once) stay(stage, printer);
    return 0;
  } catch (const tour::Interrupted&) {
    printer.note("\nEnded; nothing is left behind.");
    return isComplete ? 0 : 130;
  } catch (const std::exception& error) {
    printer.failure(error.what());
    printer.summary();
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool once = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--help" || word == "-h") return usage(0);
    if (word != "--once") return usage(2);
    once = true;
  }
  tour::Printer printer;
  try {
    return run(once, printer);
  } catch (const std::exception& error) {
    printer.failure(error.what());
    return 1;
  }
}
