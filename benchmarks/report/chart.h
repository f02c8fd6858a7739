#pragma once

#include <string>

#include "benchmarks/report/results.h"

namespace report {

/// A growth curve to be drawn.
struct Chart {
  const char* row;
  const char* title;
  const char* xLabel;
  const char* floor;        ///< What the floor is, for the legend.
  const char* alternative;  ///< What the alternative is.
  bool isLogarithmic;       ///< Both axes; zero cannot be shown on such.
};

/// The chart as an SVG image; empty where the run has no points for it.
std::string draw(const Chart& chart, const Results& results);

}  // namespace report
