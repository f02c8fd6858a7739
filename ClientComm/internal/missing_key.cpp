#include "ClientComm/internal/missing_key.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "ClientComm/internal/guard.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/bundle_layout.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

constexpr std::size_t kMostDifferences = 4;

// How many characters one text has and the other lacks. Their order and case do not count.
std::size_t differences(std::string_view one, std::string_view other) noexcept {
  constexpr unsigned kLetterBits = 31;  // equal for both cases
  std::array<int, kLetterBits + 1> counts{};
  for (const char c : one) ++counts[static_cast<unsigned char>(c) & kLetterBits];
  for (const char c : other) --counts[static_cast<unsigned char>(c) & kLetterBits];
  std::size_t sum = 0;
  for (const int count : counts) sum += static_cast<std::size_t>(count < 0 ? -count : count);
  return sum;
}

bool isMisspelling(std::string_view found, std::string_view key) noexcept {
  // A short key is close to too many others.
  return found != key && differences(found, key) <= std::min(kMostDifferences, key.size() / 4);
}

}  // namespace

void reportMissingKey(const char* key, const char* otherKey) noexcept {
  if (!isReporting()) return;
  guarded([&] {
    const Bundle& host = Bundle::mainBundle();
    if (!isApplicationPath(host.bundlePath())) {
      report(DiagnosticCause::kHostWithoutBundle, host.bundlePath());
      return;
    }
    for (const auto& entry : host.infoDictionary()) {
      if (isMisspelling(entry.first, key) || isMisspelling(entry.first, otherKey)) {
        report(DiagnosticCause::kInfoKeyMisspelt, entry.first, key);
        return;
      }
    }
    report(DiagnosticCause::kInfoKeyMissing, key);
  });
}

}  // namespace clientcomm
