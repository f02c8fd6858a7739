#include <benchmark/benchmark.h>

#include <cstring>

#include "benchmarks/benchmarks.h"
#include "tests/support/supervisor.h"

namespace {

/// Takes the option --smoke out of the arguments.
bool takeSmokeOption(int& argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--smoke") != 0) continue;
    for (int k = i; k < argc; ++k) argv[k] = argv[k + 1];
    --argc;
    return true;
  }
  return false;
}

int runBenchmarks(int argc, char** argv) {
  bench::Plan plan;
  plan.isSmoke = takeSmokeOption(argc, argv);
  if (plan.isSmoke) plan.repetitions = 1;
  bench::registerSendBenchmarks(plan);
  bench::registerQueryBenchmarks(plan);
  bench::registerDispatchBenchmarks(plan);
  bench::registerLargeArgumentBenchmarks(plan);
  bench::registerManySendersBenchmarks(plan);
  bench::registerVersionBenchmarks(plan);
  bench::registerInstallBenchmarks(plan);
  bench::registerProductBenchmarks(plan);
  bench::registerProcessListBenchmarks(plan);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  bench::endOtherProcesses();
  return 0;
}

}  // namespace

int main(int argc, char** argv) { return support::runSupervised(argc, argv, runBenchmarks); }
