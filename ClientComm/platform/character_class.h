#pragma once

namespace clientcomm {

/// Whether the UTF-16 unit is in the platform's decimal-digit set (Unicode category Nd).
bool isDecimalDigit(char16_t unit) noexcept;

}  // namespace clientcomm
