#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The text of an XML property list: what XML can hold, and the form of what it cannot.
///
/// XML holds no control character but tab, line feed and carriage return, no noncharacter U+FFFE or
/// U+FFFF, and nothing that is not Unicode. A string with anything else (a path, say) is written as
///
///     <?clientcomm string?>
///     <data>L2hvbWUv/w==</data>
///
/// so that other programs read its bytes as data, and this library reads the string. A key of that
/// kind stays a key: the bytes that XML cannot hold, and "%", are percent-encoded.
///
///     <?clientcomm percent-encoded?>
///     <key>/home/%FF</key>
namespace clientcomm {

/// The target of the processing instructions above, and what they say of the next element.
inline constexpr std::string_view kXmlNoteTarget = "clientcomm";
inline constexpr char kStringNote[] = "string";
inline constexpr char kPercentEncodedNote[] = "percent-encoded";

constexpr bool isXmlBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

/// Whether XML can hold `text`.
bool isXmlText(std::string_view text);

/// `text` with "%" and all that XML cannot hold as %XX, XX being a byte in hexadecimal.
std::string percentEncoded(std::string_view text);

/// The inverse of `percentEncoded`. Nothing when a "%" begins no such form.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace clientcomm
