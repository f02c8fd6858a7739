#pragma once

#include <string>
#include <string_view>

/// Text that came in from outside, made fit for the files that it goes into.
namespace sample {

/// `text` as well-formed UTF-8 without control characters; what is neither is replaced by U+FFFD.
/// Preferences are XML, which can hold nothing else.
std::string printableText(std::string_view text);

/// `text` as a file name: no slash, no control character, and different for different texts.
std::string fileNameFor(std::string_view text);

/// The bytes of `text` as hexadecimal digits.
std::string hexadecimal(std::string_view text);

/// The present time in UTC, ISO 8601 with milliseconds.
std::string timeStamp();

/// A new random identifier.
std::string newIdentifier();

}  // namespace sample
