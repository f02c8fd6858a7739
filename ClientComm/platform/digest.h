#pragma once

#include <string>
#include <string_view>

namespace clientcomm {

/// The SHA-256 digest of `text` in lower-case hexadecimal digits, as part of a file name.
std::string digestOf(std::string_view text);

}  // namespace clientcomm
