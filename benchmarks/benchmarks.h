#pragma once

#include "benchmarks/support/plan.h"

/// The figures, one function for each row or group of rows of the table. A name is "<row>/<side>"
/// or
/// "<row>/<x>/<side>": the side is "clientcomm", "floor" or "alternative", x is where on a growth
/// curve the figure lies.
namespace bench {

void registerSendBenchmarks(const Plan& plan);
void registerQueryBenchmarks(const Plan& plan);
void registerDispatchBenchmarks(const Plan& plan);
void registerLargeArgumentBenchmarks(const Plan& plan);
void registerManySendersBenchmarks(const Plan& plan);
void registerVersionBenchmarks(const Plan& plan);
void registerInstallBenchmarks(const Plan& plan);
void registerProductBenchmarks(const Plan& plan);
void registerFootprintBenchmarks(const Plan& plan);
void registerProcessListBenchmarks(const Plan& plan);
void registerWatchBenchmarks(const Plan& plan);

/// Ends the processes that the last of these has started.
void endOtherProcesses();

}  // namespace bench
