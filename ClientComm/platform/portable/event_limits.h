#pragma once

#include <cstddef>
#include <cstdint>

/// What an event or a reply may measure on its way. A receiver refuses what exceeds one of these,
/// so a sender refuses it first, with `memFullErr`. Part of the protocol: senders and receivers of
/// every version share the values.
namespace clientcomm {

/// Bytes of the flattened form; ample for a 16 MiB argument.
inline constexpr std::size_t kMaximumFlattenedSize = std::size_t{64} << 20;

/// Levels of lists and events; a call event needs four.
inline constexpr int kMaximumNesting = 16;

/// Descriptors in all, the event and its lists among them, so that a peer cannot fill memory with
/// empty ones.
inline constexpr std::size_t kMaximumDescriptors = std::size_t{1} << 18;

/// Attributes of one event, and parameters of one event: setting one looks through those before it.
inline constexpr std::uint32_t kMaximumKeywords = 64;

/// Bytes of one packet, its header among them. A body that does not fit goes into a memory file,
/// and so does a smaller one where the system's send buffers are below their usual size
/// (net.core.wmem_default, 208 KiB).
inline constexpr std::size_t kMaximumPacketSize = std::size_t{160} << 10;

}  // namespace clientcomm
