#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "ClientComm/platform/apple_event.h"

/// The flattened form of a descriptor, the same for every word size and byte order:
///
///   descriptor := type:u32 length:u32 payload      (length in bytes, of the payload)
///   list       := count:u32 descriptor…
///   event      := class:u32 id:u32 returnID:i16 transactionID:i32 target:descriptor
///                 count:u32 (keyword:u32 descriptor)…   attributes
///                 count:u32 (keyword:u32 descriptor)…   parameters
///
/// Integers are little-endian. The payload of every other type is its bytes as they stand.
namespace clientcomm {

/// Bytes of the flattened form; nothing for a descriptor that exceeds a limit of wire_format.h,
/// which `unflatten` would refuse.
std::optional<std::size_t> flattenedSize(const AppleEventDescriptor& descriptor) noexcept;

/// Writes the flattened form to `out`, which has room for its `flattenedSize`.
/// @return the end of what was written.
char* flattenTo(const AppleEventDescriptor& descriptor, char* out) noexcept;

/// The flattened form of a descriptor for a call that gathers its output: what is long is not
/// copied, but referred to in place. Valid while the descriptor lives and does not change.
class FlattenedPieces {
 public:
  /// @param size `flattenedSize` of the descriptor.
  /// @param room bytes to leave free at the beginning of the first piece.
  FlattenedPieces(const AppleEventDescriptor& descriptor, std::size_t size, std::size_t room);

  /// The pieces in their order; the first begins with what was left free.
  std::vector<iovec>& pieces() noexcept { return pieces_; }

 private:
  std::array<char, 1024> usual_;
  std::unique_ptr<char[]> large_;
  std::vector<iovec> pieces_;
};

/// Reads a flattened descriptor. Nothing unless `bytes` is exactly one whole well-formed descriptor
/// within the limits of wire_format.h; allocates no more than a small multiple of `bytes`.
std::optional<AppleEventDescriptor> unflatten(std::string_view bytes);

}  // namespace clientcomm
