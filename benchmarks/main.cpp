#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>

#include "benchmarks/benchmarks.h"
#include "benchmarks/hosts.h"
#include "benchmarks/idle.h"
#include "tests/support/supervisor.h"

namespace {

/// Takes the option that begins with `name` out of the arguments.
/// @return what follows the name; null when there is no such option.
const char* takeOption(const char* name, int& argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], name, std::strlen(name)) != 0) continue;
    const char* const value = argv[i] + std::strlen(name);
    for (int k = i; k < argc; ++k) argv[k] = argv[k + 1];
    --argc;
    return value;
  }
  return nullptr;
}

int runBenchmarks(int argc, char** argv) {
  if (const char* const seconds = takeOption("--idle=", argc, argv)) {
    return bench::measureIdling(std::atoi(seconds));
  }
  bench::Plan plan;
  plan.isSmoke = takeOption("--smoke", argc, argv) != nullptr;
  if (const char* const seconds = takeOption("--hosts=", argc, argv)) {
    return bench::measureHosts(std::atoi(seconds), plan.isSmoke);
  }
  if (plan.isSmoke) plan.repetitions = 1;
  bench::registerSendBenchmarks(plan);
  bench::registerQueryBenchmarks(plan);
  bench::registerDispatchBenchmarks(plan);
  bench::registerWatchBenchmarks(plan);
  bench::registerLargeArgumentBenchmarks(plan);
  bench::registerManySendersBenchmarks(plan);
  bench::registerVersionBenchmarks(plan);
  bench::registerInstallBenchmarks(plan);
  bench::registerProductBenchmarks(plan);
  bench::registerFootprintBenchmarks(plan);
  bench::registerProcessListBenchmarks(plan);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  bench::endOtherProcesses();
  return 0;
}

}  // namespace

int main(int argc, char** argv) { return support::runSupervised(argc, argv, runBenchmarks); }
