#include "tools/clientcomm/check/spelling.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace clientcomm::tool {
namespace {

constexpr std::size_t kMostDifferences = 3;

// A longer text is no misspelt key, and the comparison takes the product of both lengths.
constexpr std::size_t kLongestKey = 100;

std::string simplified(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == ' ' || c == '\t' || c == '_' || c == '-') continue;
    result += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return result;
}

std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= one.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t k = 1; k <= other.size(); ++k) {
      const std::size_t replaced = diagonal + (one[i - 1] == other[k - 1] ? 0 : 1);
      diagonal = std::exchange(row[k], std::min({replaced, row[k] + 1, row[k - 1] + 1}));
    }
  }
  return row.back();
}

}  // namespace

std::size_t differences(std::string_view one, std::string_view other) {
  return distance(simplified(one), simplified(other));
}

std::optional<std::string> misspellingOf(std::span<const std::string_view> keys,
                                         const std::vector<std::string>& found) {
  std::optional<std::string> closest;
  std::size_t fewest = kMostDifferences + 1;
  for (const std::string& candidate : found) {
    if (candidate.size() > kLongestKey) continue;
    for (const std::string_view key : keys) {
      const std::size_t count = differences(candidate, key);
      if (candidate == key || count > key.size() / 4 || count >= fewest) continue;
      closest = candidate;
      fewest = count;
    }
  }
  return closest;
}

}  // namespace clientcomm::tool
