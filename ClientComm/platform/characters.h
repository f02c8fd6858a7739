#pragma once

#include <cstddef>
#include <string_view>

/// The characters of a text. Nothing here throws on any input.
namespace clientcomm {

/// Length of `text` in UTF-16 units. A byte that is not part of well-formed UTF-8 counts as one.
std::size_t utf16Length(std::string_view text) noexcept;

/// Takes the character at the front of `text` off it, without allocating.
/// @return its code point; U+FFFD for a byte that is not part of well-formed UTF-8 (one byte is
///         taken then). `text` must not be empty.
char32_t takeCharacter(std::string_view& text) noexcept;

}  // namespace clientcomm
