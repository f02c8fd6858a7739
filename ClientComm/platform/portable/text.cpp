#include "ClientComm/platform/text.h"

#include <limits>

namespace clientcomm {
namespace {

constexpr bool isBlank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool isAsciiDigit(char c) noexcept { return c >= '0' && c <= '9'; }

std::string_view withoutBlanksAndSign(std::string_view text, bool& isNegative) noexcept {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  isNegative = !text.empty() && text.front() == '-';
  if (isNegative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
  return text;
}

}  // namespace

std::int32_t intValue(std::string_view text) noexcept {
  using Limits = std::numeric_limits<std::int32_t>;
  bool isNegative = false;
  text = withoutBlanksAndSign(text, isNegative);
  std::int64_t value = 0;
  for (const char c : text) {
    if (!isAsciiDigit(c)) break;
    value = value * 10 + (c - '0');
    if (value > Limits::max()) return isNegative ? Limits::min() : Limits::max();
  }
  return static_cast<std::int32_t>(isNegative ? -value : value);
}

bool boolValue(std::string_view text) noexcept {
  bool isNegative = false;
  text = withoutBlanksAndSign(text, isNegative);
  while (!text.empty() && text.front() == '0') text.remove_prefix(1);
  if (text.empty()) return false;
  constexpr std::string_view kTrueBeginnings = "YyTt123456789";
  return kTrueBeginnings.find(text.front()) != std::string_view::npos;
}

}  // namespace clientcomm
