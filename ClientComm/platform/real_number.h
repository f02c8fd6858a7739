#pragma once

#include <optional>
#include <string>

namespace clientcomm {

/// Reads all of `text` as a decimal number, infinity or NaN, with a point in every locale. Callers
/// check the grammar: blanks, signs and hexadecimal digits may be accepted.
/// @return nothing for any other text, and for a number too large or too small for a double
std::optional<double> realNumber(const std::string& text);

}  // namespace clientcomm
