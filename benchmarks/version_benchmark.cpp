#include <apt-pkg/debversion.h>

#include <cstddef>
#include <iterator>

#include "ClientComm/internal/version_order.h"
#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"

// Typical pairs of versions; the figure is for one comparison.

namespace bench {
namespace {

struct Pair {
  std::string_view first;
  std::string_view second;
};

constexpr Pair kPairs[] = {{"1.0", "1.0"},
                           {"1.0", "1.1"},
                           {"1.2.3", "1.2.10"},
                           {"2.0", "10.0"},
                           {"1.0.0", "1.0.0b1"},
                           {"3.4.5", "3.4.5rc2"},
                           {"12.4.1 (5830)", "12.4.1 (5831)"},
                           {"2024.11.0", "2024.11.0"},
                           {"7.61.0-beta", "7.61.0-alpha"},
                           {"1.0.0.20241121153000", "1.0.0.20241121153001"}};

template <typename Compare>
std::function<void()> comparisons(Compare compare) {
  return [compare, index = std::size_t{0}]() mutable {
    const Pair& pair = kPairs[index++ % std::size(kPairs)];
    benchmark::DoNotOptimize(compare(pair.first, pair.second));
  };
}

int compareByApt(std::string_view first, std::string_view second) {
  return debVS.DoCmpVersion(first.data(), first.data() + first.size(), second.data(),
                            second.data() + second.size());
}

}  // namespace

void registerVersionBenchmarks(const Plan& plan) {
  registerShort(plan, "version/clientcomm", 200,
                [] { return comparisons(clientcomm::compareVersionStrings); });
  registerShort(plan, "version/alternative", 200, [] { return comparisons(compareByApt); });
}

}  // namespace bench
