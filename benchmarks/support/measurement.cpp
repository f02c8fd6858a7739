#include "benchmarks/support/measurement.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

namespace bench {
namespace {

constexpr int kSamplesOfShort = 500;

int processorCount() { return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)); }

}  // namespace

void pinTo(int processor) { pin(0, processor); }

void pin(pid_t process, int processor) {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(static_cast<std::size_t>(std::min(processor, processorCount() - 1)), &processors);
  sched_setaffinity(process, sizeof processors, &processors);
}

void unpin() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  for (int i = 0; i < processorCount(); ++i) CPU_SET(static_cast<std::size_t>(i), &processors);
  sched_setaffinity(0, sizeof processors, &processors);
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

void registerShort(const Plan& plan, const std::string& name, int count,
                   const std::function<std::function<void()>()>& makeOperation) {
  registerSampled(plan, name, kSamplesOfShort, [=] {
    return [count, operation = makeOperation()] {
      const auto start = Clock::now();
      for (int i = 0; i < count; ++i) operation();
      return secondsSince(start) / count;
    };
  });
}

}  // namespace bench
