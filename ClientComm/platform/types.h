#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The shared vocabulary of the library: the 16-bit status and the nullable string.
namespace clientcomm {

/// Signed 16-bit status of an operation that talks to another application; 0 is success.
using OSErr = std::int16_t;

/// nil, or a string. The text is UTF-8 by convention, but every byte value is carried unchanged
/// (file paths need not be UTF-8), an embedded NUL included. nil and "" are different values.
using OptionalString = std::optional<std::string>;

// Statuses, with the platform's own names and values.
inline constexpr OSErr noErr = 0;                     ///< Handed over, or nothing to do.
inline constexpr OSErr paramErr = -50;                ///< The request itself is malformed.
inline constexpr OSErr memFullErr = -108;             ///< Larger than can be carried.
inline constexpr OSErr procNotFound = -600;           ///< No running application has that identity.
inline constexpr OSErr connectionInvalid = -609;      ///< It went away during the exchange.
inline constexpr OSErr errAEEventNotHandled = -1708;  ///< It has no handler for the event.
inline constexpr OSErr errAETimeout = -1712;          ///< It did not take or answer in time.
inline constexpr OSErr errAEEventNotPermitted = -1743;  ///< It belongs to another user.

}  // namespace clientcomm
