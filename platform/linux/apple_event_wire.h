#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/apple_event.h"

/// The flattened form of a descriptor, the same for every word size and byte order:
///
///   descriptor := type:u32 length:u32 payload      (length in bytes, of the payload)
///   list       := count:u32 descriptor…
///   event      := class:u32 id:u32 returnID:i16 transactionID:i32 target:descriptor
///                 count:u32 (keyword:u32 descriptor)…   attributes
///                 count:u32 (keyword:u32 descriptor)…   parameters
///
/// Integers are little-endian. The payload of every other type is its bytes as they stand.
namespace platform {

/// The largest flattened event that is carried; ample for a 16 MiB argument.
inline constexpr std::size_t kMaximumFlattenedSize = std::size_t{64} << 20;

/// How deep lists and events may nest; a call event needs four levels.
inline constexpr int kMaximumNesting = 16;

/// How many descriptors one event may hold in all, so that a peer cannot have memory filled with
/// empty ones.
inline constexpr std::size_t kMaximumDescriptors = std::size_t{1} << 18;

/// Bytes that `flattenTo` writes for `descriptor`.
std::size_t flattenedSize(const AppleEventDescriptor& descriptor) noexcept;

/// Writes the flattened form to `out`, which has room for `flattenedSize` bytes, where that is at
/// most `kMaximumFlattenedSize`. @return the end of what was written.
char* flattenTo(const AppleEventDescriptor& descriptor, char* out) noexcept;

/// The flattened form of a descriptor for a call that gathers its output: what is long is not
/// copied, but stands where it is. Holds while the descriptor lives and does not change.
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
/// within the limits above; allocates no more than a small multiple of `bytes`.
std::optional<AppleEventDescriptor> unflatten(std::string_view bytes);

}  // namespace platform
