#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "benchmarks/report/chart.h"
#include "benchmarks/report/results.h"
#include "benchmarks/report/table.h"

// Prints the table of a run, and draws its growth curves.

namespace {

constexpr report::Chart kCharts[] = {
    {"dispatch", "From the bytes of a call to the bytes of its reply", "arguments",
     "direct call with its strings", "sd-bus", false},
    {"large-argument", "One argument there and back", "bytes of the argument",
     "the bytes over a socket pair", "sd-bus", true},
    {"many-senders", "Events of several senders at once, time for each event", "senders",
     "raw sockets", "sd-bus", false},
    {"process-list", "Whether an application is running", "other processes",
     "one link read for each process", "libproc2", false},
};

int run(const std::string& resultsPath, const std::filesystem::path& folder) {
  const report::Results results(resultsPath);
  const std::string table = report::table(results);
  std::fputs(table.c_str(), stdout);
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "table.md") << table;
  for (const report::Chart& chart : kCharts) {
    const std::string image = report::draw(chart, results);
    if (!image.empty()) std::ofstream(folder / (std::string(chart.row) + ".svg")) << image;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s RESULTS.json FOLDER\n", argv[0]);
    return 2;
  }
  try {
    return run(argv[1], argv[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
    return 1;
  }
}
