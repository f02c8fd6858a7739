#include "tools/clientcomm/output.h"

#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace clientcomm::tool {
namespace {

bool isColorWanted(ColorUse color) {
  if (color != ColorUse::kAuto) return color == ColorUse::kAlways;
  const char* const noColor = std::getenv("NO_COLOR");
  if (noColor != nullptr && *noColor != '\0') return false;
  const char* const terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

const char* codeOf(Style style) {
  switch (style) {
    case Style::kBold:
      return "1";
    case Style::kDim:
      return "2";
    case Style::kRed:
      return "1;31";
    case Style::kGreen:
      return "32";
    case Style::kYellow:
      return "33";
    case Style::kBlue:
      break;
  }
  return "34";
}

void write(std::string_view text) {
  // main() looks at the stream's error at the end.
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout));
}

std::string textOf(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

// The length of the character at the beginning of `text`; 0 where it is no printable one.
std::size_t printableLength(std::string_view text) {
  const auto code = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
  if (code == static_cast<gunichar>(-1) || code == static_cast<gunichar>(-2)) return 0;
  const GUnicodeType type = g_unichar_type(code);
  const bool isControl = type == G_UNICODE_CONTROL || type == G_UNICODE_FORMAT ||
                         type == G_UNICODE_LINE_SEPARATOR || type == G_UNICODE_PARAGRAPH_SEPARATOR;
  return isControl ? 0 : static_cast<std::size_t>(g_unichar_to_utf8(code, nullptr));
}

}  // namespace

Output::Output(OutputFormat format, ColorUse color)
    : format_(format), isColored_(format == OutputFormat::kText && isColorWanted(color)) {}

std::string Output::styled(Style style, std::string_view text) const {
  if (!isColored_) return std::string(text);
  return std::string("\x1b[").append(codeOf(style)).append("m").append(text).append("\x1b[0m");
}

void Output::line(std::string_view text) {
  write(text);
  write("\n");
}

void Output::content(std::string_view text) {
  line(isatty(STDOUT_FILENO) == 1 ? printable(text) : text);
}

void Output::document(const Json& json) { write(textOf(json, 2)); }

void Output::jsonLine(const Json& json) {
  write(textOf(json, -1));
  std::fflush(stdout);
}

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = printableLength(text);
    if (length != 0) {
      result.append(text.substr(0, length));
      text.remove_prefix(length);
      continue;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(text.front());
    result.append("\\x").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
    text.remove_prefix(1);
  }
  return result;
}

}  // namespace clientcomm::tool
