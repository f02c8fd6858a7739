#include "ClientComm/platform/portable/property_list/xml_scalars.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <system_error>

#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/portable/property_list/xml_text.h"
#include "ClientComm/platform/real_number.h"

namespace clientcomm {
namespace {

namespace chrono = std::chrono;

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view withoutBlanksAround(std::string_view text) {
  while (!text.empty() && isXmlBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isXmlBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Takes an optional sign off the front. @return whether it is a minus.
bool takeSign(std::string_view& text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  return isNegative;
}

std::size_t takeDigits(std::string_view& text) {
  const auto end = std::ranges::find_if_not(text, isDigit);
  const auto count = static_cast<std::size_t>(end - text.begin());
  text.remove_prefix(count);
  return count;
}

// Whether `text`, which has no sign, is digits with an optional point and an optional exponent.
bool isDecimal(std::string_view text) {
  std::size_t digits = takeDigits(text);
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    digits += takeDigits(text);
  }
  if (digits == 0) return false;
  if (!text.starts_with('e') && !text.starts_with('E')) return text.empty();
  text.remove_prefix(1);
  takeSign(text);
  return takeDigits(text) > 0 && text.empty();
}

bool isNotFinite(std::string_view text) {
  std::string lower(text.substr(0, 9));
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower == "nan" || lower == "inf" || lower == "infinity";
}

// Takes `count` digits and the character `end` behind them.
std::optional<unsigned> takeField(std::string_view& text, std::size_t count, char end) {
  const std::string_view digits = text.substr(0, count);
  if (text.size() <= count || text[count] != end || !std::ranges::all_of(digits, isDigit)) {
    return std::nullopt;
  }
  unsigned value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  text.remove_prefix(count + 1);
  return value;
}

}  // namespace

std::optional<PropertyListValue> integerFromText(std::string_view text) {
  text = withoutBlanksAround(text);
  const bool isNegative = takeSign(text);
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, magnitude, isHexadecimal ? 16 : 10);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  if (!isNegative) return integerValue(magnitude);
  constexpr std::uint64_t kLargestNegative = std::uint64_t{1} << 63U;
  if (magnitude > kLargestNegative) return std::nullopt;
  return PropertyListValue(static_cast<std::int64_t>(0 - magnitude));
}

std::optional<PropertyListValue> realFromText(std::string_view text) {
  text = withoutBlanksAround(text);
  const bool isNegative = takeSign(text);
  if (!isDecimal(text) && !isNotFinite(text)) return std::nullopt;
  const auto value = realNumber(std::string(text));
  if (!value) return std::nullopt;
  return PropertyListValue(isNegative ? -*value : *value);
}

std::optional<PropertyListValue> dateFromText(std::string_view text) {
  const auto year = takeField(text, 4, '-');
  const auto month = takeField(text, 2, '-');
  const auto day = takeField(text, 2, 'T');
  const auto hour = takeField(text, 2, ':');
  const auto minute = takeField(text, 2, ':');
  const auto second = takeField(text, 2, 'Z');
  if (!year || !month || !day || !hour || !minute || !second || !text.empty()) return std::nullopt;
  const chrono::year_month_day date(chrono::year(static_cast<int>(*year)), chrono::month(*month),
                                    chrono::day(*day));
  if (*year == 0 || !date.ok() || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
  const auto days = (chrono::sys_days(date) - kReferenceDay).count();
  return PropertyListDate{static_cast<double>(days) * 86400.0 +
                          static_cast<double>((*hour * 60 + *minute) * 60 + *second)};
}

}  // namespace clientcomm
