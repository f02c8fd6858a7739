#pragma once

#include <string>

#include "benchmarks/report/results.h"

namespace report {

/// The table of all rows in Markdown: what was measured, what it must reach, and whether it does.
std::string table(const Results& results);

/// A duration in the unit that suits it: "594 ns", "16.5 µs".
std::string duration(double nanoseconds);

}  // namespace report
