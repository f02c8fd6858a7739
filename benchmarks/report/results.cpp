#include "benchmarks/report/results.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

namespace report {
namespace {

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// A name as it was registered, without what the benchmark library has put behind it.
std::string baseName(const std::string& name) { return name.substr(0, name.find("/iterations:")); }

// What stands in a run beside its counters.
bool isCounter(const std::string& key, const nlohmann::json& value) {
  static const std::set<std::string> known = {"family_index", "per_family_instance_index",
                                              "repetitions",  "repetition_index",
                                              "threads",      "iterations",
                                              "real_time",    "cpu_time"};
  return value.is_number() && !known.contains(key);
}

// Text of the file; Google Benchmark writes the variation of what is always 0 as NaN, which is not
// JSON.
std::string textOf(const std::string& path) {
  constexpr std::string_view kNan = ": NaN";
  std::ifstream file(path);
  std::string text(std::istreambuf_iterator<char>(file), {});
  for (auto at = text.find(kNan); at != std::string::npos; at = text.find(kNan, at)) {
    text.replace(at, kNan.size(), ": null");
  }
  return text;
}

std::string contextOf(const nlohmann::json& context) {
  std::string loads;
  for (const auto& load : context.at("load_avg")) {
    loads += (loads.empty() ? "" : ", ") + load.dump();
  }
  return context.at("date").get<std::string>() + ", " +
         std::to_string(context.at("num_cpus").get<int>()) + " processors of " +
         std::to_string(context.at("mhz_per_cpu").get<int>()) + " MHz, load at the start " + loads;
}

}  // namespace

Results::Results(const std::string& path) {
  const auto json = nlohmann::json::parse(textOf(path));
  context_ = contextOf(json.at("context"));
  for (const auto& run : json.at("benchmarks")) {
    if (run.at("run_type") != "iteration") continue;
    const std::string name = baseName(run.at("name").get<std::string>());
    times_[name].push_back(run.at("real_time").get<double>());
    for (const auto& [key, value] : run.items()) {
      if (isCounter(key, value)) counters_[name][key].push_back(value.get<double>());
    }
  }
}

std::optional<Figure> Results::figure(const std::string& name) const {
  const auto found = times_.find(name);
  if (found == times_.end()) return std::nullopt;
  const auto [least, most] = std::minmax_element(found->second.begin(), found->second.end());
  return Figure{median(found->second), *least, *most};
}

std::optional<double> Results::counter(const std::string& name, const std::string& counter) const {
  const auto found = counters_.find(name);
  if (found == counters_.end() || !found->second.contains(counter)) return std::nullopt;
  return median(found->second.at(counter));
}

std::vector<std::string> Results::countersOf(const std::string& name) const {
  std::vector<std::string> names;
  const auto found = counters_.find(name);
  if (found == counters_.end()) return names;
  for (const auto& [key, values] : found->second) names.push_back(key);
  return names;
}

std::vector<double> Results::pointsOf(const std::string& row) const {
  std::set<double> points;
  for (const auto& [name, times] : times_) {
    if (!name.starts_with(row + "/")) continue;
    const std::string rest = name.substr(row.size() + 1);
    const std::size_t slash = rest.find('/');
    if (slash != std::string::npos) points.insert(std::strtod(rest.c_str(), nullptr));
  }
  return {points.begin(), points.end()};
}

}  // namespace report
