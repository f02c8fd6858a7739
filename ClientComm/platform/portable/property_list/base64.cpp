#include "ClientComm/platform/portable/property_list/base64.h"

#include <cstddef>
#include <cstdint>

#include "ClientComm/platform/portable/property_list/xml_text.h"

namespace clientcomm {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';

// The value of a digit; `kDigits.size()` for any other character.
std::uint32_t valueOfDigit(char c) {
  if (c >= 'A' && c <= 'Z') return static_cast<std::uint32_t>(c - 'A');
  if (c >= 'a' && c <= 'z') return static_cast<std::uint32_t>(c - 'a') + 26;
  if (c >= '0' && c <= '9') return static_cast<std::uint32_t>(c - '0') + 52;
  if (c == '+') return 62;
  return c == '/' ? 63 : static_cast<std::uint32_t>(kDigits.size());
}

}  // namespace

std::string base64FromData(const PropertyListValue::Data& data) {
  std::string text;
  text.reserve((data.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < data.size(); i += 3) {
    const std::size_t count = data.size() - i < 3 ? data.size() - i : 3;
    std::uint32_t bits = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      bits = bits << 8U | (j < count ? std::to_integer<std::uint32_t>(data[i + j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      text += j <= count ? kDigits[(bits >> (18 - 6 * j)) & 0x3FU] : kPadding;
    }
  }
  return text;
}

std::optional<PropertyListValue::Data> dataFromBase64(std::string_view text) {
  PropertyListValue::Data data;
  data.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isXmlBlank(c)) continue;
    if (c == kPadding) {
      ++padding;
      continue;
    }
    const std::uint32_t digit = valueOfDigit(c);
    if (padding != 0 || digit == kDigits.size()) return std::nullopt;
    bits = bits << 6U | digit;
    ++digits;
    // Every digit but the first of four completes a byte.
    const std::size_t rest = (4 - digits % 4) % 4 * 2;
    if (rest != 6) data.push_back(static_cast<std::byte>(bits >> rest & 0xFFU));
  }
  const std::size_t missing = (4 - digits % 4) % 4;
  if (missing == 3 || padding != missing) return std::nullopt;
  return data;
}

}  // namespace clientcomm
