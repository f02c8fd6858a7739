#pragma once

#include <benchmark/benchmark.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "benchmarks/support/plan.h"

namespace bench {

// The processors that the two sides of an exchange are pinned to.
inline constexpr int kSenderProcessor = 0;
inline constexpr int kReceiverProcessor = 1;

/// Lets the calling process run on `processor` only; on a machine that has no such processor, on
/// its last one.
void pinTo(int processor);
/// The same for another process.
void pin(pid_t process, int processor);
/// Lets the calling process, and what it starts, run on every processor.
void unpin();

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Spins, without giving the processor away.
void spinFor(std::chrono::nanoseconds duration);

double median(std::vector<double> values);

/// Something that is measured sample by sample: returns the seconds that one sample took, without
/// what it did before and after.
using Sample = std::function<double()>;

/// Registers a benchmark whose figure is the median of `samples` samples, taken `plan.repetitions`
/// times after some to warm up. `makeSample` prepares a repetition.
void registerSampled(const Plan& plan, const std::string& name, int samples,
                     const std::function<Sample()>& makeSample);

/// Registers a benchmark of something that is too short for a sample of its own: a sample is
/// `count` of what `makeOperation` gives, and the figure is that of one of them.
void registerShort(const Plan& plan, const std::string& name, int count,
                   const std::function<std::function<void()>()>& makeOperation);

}  // namespace bench
