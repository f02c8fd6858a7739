#include "benchmarks/support/process_status.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace bench {
namespace {

std::string pathIn(pid_t pid, const char* name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

/// The number behind `key` in a file of lines "key: number".
double numberIn(const std::string& path, const std::string& key) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(key + ":")) return std::stod(line.substr(key.size() + 1));
  }
  return 0;
}

double entriesOf(const std::string& directory) {
  const std::filesystem::directory_iterator entries(directory);
  return static_cast<double>(std::distance(begin(entries), end(entries)));
}

}  // namespace

ProcessStatus statusOfProcess(pid_t pid) {
  const std::string memory = pathIn(pid, "smaps_rollup");
  const double written = numberIn(memory, "Private_Dirty");
  return {numberIn(memory, "Pss"), numberIn(memory, "Private_Clean") + written, written,
          entriesOf(pathIn(pid, "task")), entriesOf(pathIn(pid, "fd"))};
}

ProcessorUse processorUseOf(pid_t pid) {
  constexpr double kNanosecondsPerSecond = 1e9;
  std::ifstream schedule(pathIn(pid, "schedstat"));
  double nanoseconds = 0;
  schedule >> nanoseconds;
  return {nanoseconds / kNanosecondsPerSecond,
          numberIn(pathIn(pid, "status"), "voluntary_ctxt_switches")};
}

}  // namespace bench
