#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace clientcomm::tool {

using Json = nlohmann::ordered_json;

enum class OutputFormat { kText, kJson };
enum class ColorUse { kAuto, kAlways, kNever };
enum class Style { kBold, kDim, kRed, kGreen, kYellow, kBlue };

/// The standard output of a command.
class Output {
 public:
  /// With `ColorUse::kAuto`, colors are used where standard output is a terminal, $TERM is not
  /// "dumb" and $NO_COLOR is empty.
  Output(OutputFormat format, ColorUse color);

  bool isJson() const { return format_ == OutputFormat::kJson; }

  /// `text` in a style, where colors are used. Does not escape it.
  std::string styled(Style style, std::string_view text) const;

  /// Prints a line. What comes from elsewhere goes through `printable` first.
  void line(std::string_view text);

  /// Prints a text of another process as a line: byte for byte, on a terminal as `printable`.
  void content(std::string_view text);

  /// Prints a document, indented.
  void document(const Json& json);

  /// Prints one of several documents, on one line, and flushes it.
  void jsonLine(const Json& json);

 private:
  OutputFormat format_;
  bool isColored_;
};

/// `text` with each control character, and each byte that is no UTF-8, as "\xHH": a text of another
/// process must not drive the terminal.
std::string printable(std::string_view text);

}  // namespace clientcomm::tool
