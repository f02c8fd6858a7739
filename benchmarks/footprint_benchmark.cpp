#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/process_status.h"
#include "benchmarks/support/product.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// What a host pays: a program that only runs a main loop, without and with the library started in
// it, while the helper runs.

namespace bench {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "%s failed\n", what);
  std::exit(1);
}

/// A host whose executable is the program at `program`. @return the path of its executable.
std::string makeHostOf(const char* program, const std::string& name) {
  const std::string executable = support::executableOf(makeHost(name, "benchmark-footprint"));
  fs::remove(executable);
  fs::copy_file(program, executable);
  return executable;
}

struct Figures {
  std::vector<double> startSeconds;
  std::vector<double> proportionalKiB;
  std::vector<double> privateKiB;
  std::vector<double> writtenKiB;
  ProcessStatus last;

  void add(const std::string& executable) {
    const auto start = Clock::now();
    support::ChildProcess process = support::ChildProcess::spawn({executable});
    if (process.readLine() != "ready") fail("a host");
    startSeconds.push_back(secondsSince(start));
    last = statusOfProcess(process.pid());
    proportionalKiB.push_back(last.proportionalKiB);
    privateKiB.push_back(last.privateKiB);
    writtenKiB.push_back(last.writtenKiB);
  }
};

std::string outputOf(const std::vector<std::string>& command) {
  support::ChildProcess process = support::ChildProcess::spawn(command);
  std::string output = process.readAll();
  if (process.wait() != 0) fail(command.front().c_str());
  return output;
}

double strippedKiB() {
  const std::string stripped = support::sandbox() + "/stripped.so";
  outputOf({"/usr/bin/strip", "-o", stripped, BENCHMARK_LIBRARY});
  return static_cast<double>(fs::file_size(stripped)) / 1024;
}

/// How many relocations the dynamic linker has to carry out, relative ones and ones by symbol.
double relocations() {
  std::istringstream lines(outputOf({"/usr/bin/readelf", "--relocs", "--wide", BENCHMARK_LIBRARY}));
  double count = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" R_") != std::string::npos) ++count;
  }
  return count;
}

void measure(benchmark::State& state, int samples) {
  const std::string bare = makeHostOf(BENCHMARK_BARE_HOST, "Bare Host");
  const std::string host = makeHostOf(BENCHMARK_LIBRARY_HOST, "Library Host");
  Figures without;
  Figures with;
  with.add(host);  // the first start of all installs the helper
  with = {};
  for ([[maybe_unused]] auto iteration : state) {
    for (int i = 0; i < samples; ++i) {
      without.add(bare);
      with.add(host);
    }
  }
  const auto added = [](const std::vector<double>& a, const std::vector<double>& b) {
    return median(a) - median(b);
  };
  state.counters["stripped_kib"] = strippedKiB();
  state.counters["relocations"] = relocations();
  state.counters["pss_kib"] = added(with.proportionalKiB, without.proportionalKiB);
  state.counters["private_kib"] = added(with.privateKiB, without.privateKiB);
  state.counters["written_kib"] = added(with.writtenKiB, without.writtenKiB);
  state.counters["start_ms"] = added(with.startSeconds, without.startSeconds) * 1e3;
  state.counters["threads_added"] = with.last.threads - without.last.threads;
  state.counters["descriptors_added"] = with.last.descriptors - without.last.descriptors;
}

}  // namespace

void registerFootprintBenchmarks(const Plan& plan) {
  const int samples = plan.atMost(5);
  benchmark::RegisterBenchmark("footprint",
                               [samples](benchmark::State& state) {
                                 pinTo(kSenderProcessor);
                                 measure(state, samples);
                               })
      ->Iterations(1)
      ->Repetitions(plan.repetitions);
}

}  // namespace bench
