#include "examples/helper/text.h"

#include <glib.h>

#include <chrono>
#include <cstdio>
#include <ctime>

#include "examples/helper/glib_owner.h"

namespace sample {

std::string printableText(std::string_view text) {
  const GTextPtr valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  std::string printable;
  for (const char character : std::string_view(valid.get())) {
    const bool isControl = static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    if (isControl && character != '\t' && character != '\n') {
      printable += "\xEF\xBF\xBD";
    } else {
      printable += character;
    }
  }
  return printable;
}

std::string fileNameFor(std::string_view text) {
  const GTextPtr escaped(
      g_uri_escape_bytes(reinterpret_cast<const guint8*>(text.data()), text.size(), nullptr));
  return escaped.get();
}

std::string hexadecimal(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string digits;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    digits += kDigits[byte >> 4];
    digits += kDigits[byte & 0xF];
  }
  return digits;
}

std::string timeStamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
  char stamp[48];
  std::snprintf(stamp, sizeof stamp, "%s.%03dZ", date, static_cast<int>(milliseconds));
  return stamp;
}

std::string newIdentifier() { return GTextPtr(g_uuid_string_random()).get(); }

}  // namespace sample
