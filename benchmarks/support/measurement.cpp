#include "benchmarks/support/measurement.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

namespace bench {
namespace {

constexpr double kShortestLoop = 0.1;  // seconds

void setProcessors(const cpu_set_t& processors) {
  sched_setaffinity(0, sizeof processors, &processors);
}

int processorCount() { return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)); }

}  // namespace

void pinTo(int processor) {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(static_cast<std::size_t>(std::min(processor, processorCount() - 1)), &processors);
  setProcessors(processors);
}

void unpin() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  for (int i = 0; i < processorCount(); ++i) CPU_SET(static_cast<std::size_t>(i), &processors);
  setProcessors(processors);
}

void spinFor(std::chrono::nanoseconds duration) {
  const auto end = Clock::now() + duration;
  while (Clock::now() < end) {
  }
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void registerSampled(const Plan& plan, const std::string& name, int samples,
                     const std::function<Sample()>& makeSample) {
  const int count = plan.atMost(samples);
  benchmark::RegisterBenchmark(name.c_str(),
                               [=](benchmark::State& state) {
                                 pinTo(kSenderProcessor);
                                 const Sample sample = makeSample();
                                 for (int i = 0; i < count / 10; ++i) sample();
                                 std::vector<double> seconds(static_cast<std::size_t>(count));
                                 for ([[maybe_unused]] auto iteration : state) {
                                   for (double& value : seconds) value = sample();
                                   state.SetIterationTime(median(seconds));
                                 }
                               })
      ->UseManualTime()
      ->Iterations(1)
      ->Repetitions(plan.repetitions)
      ->Unit(benchmark::kNanosecond);
}

void registerLoop(const Plan& plan, const std::string& name,
                  const std::function<void(benchmark::State&)>& loop) {
  auto* const registered = benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    pinTo(kSenderProcessor);
    loop(state);
  });
  registered->Repetitions(plan.repetitions)->Unit(benchmark::kNanosecond);
  if (plan.isSmoke) {
    registered->Iterations(3);
  } else {
    registered->MinTime(kShortestLoop);
  }
}

}  // namespace bench
