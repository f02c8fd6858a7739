#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

namespace clientcomm {

/// The number above 0 that is all of `text`, without sign or leading zero; 0 when it is none, or
/// too large.
template <typename Number>
Number decimalNumber(std::string_view text) noexcept {
  if (text.empty() || text.front() < '1' || text.front() > '9') return 0;
  Number number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = result.ec == std::errc() && result.ptr == text.data() + text.size();
  return isWhole ? number : Number{0};
}

}  // namespace clientcomm
