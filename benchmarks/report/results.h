#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace report {

/// What the repetitions of one figure have given, in nanoseconds.
struct Figure {
  double median = 0;
  double least = 0;
  double most = 0;
};

/// The figures of a run by their names ("send/floor"), and the counters of those that have some.
class Results {
 public:
  /// Reads what the benchmark program has written to the file at `path`. Throws where it cannot.
  explicit Results(const std::string& path);

  std::optional<Figure> figure(const std::string& name) const;
  /// The median of the counter over the repetitions.
  std::optional<double> counter(const std::string& name, const std::string& counter) const;
  /// The names of the counters, sorted.
  std::vector<std::string> countersOf(const std::string& name) const;
  /// The points on the growth curve of a row: the x for which there are figures, ascending.
  std::vector<double> pointsOf(const std::string& row) const;

  /// A line that says when and on what the run was made.
  const std::string& context() const { return context_; }

 private:
  std::map<std::string, std::vector<double>> times_;
  std::map<std::string, std::map<std::string, std::vector<double>>> counters_;
  std::string context_;
};

}  // namespace report
