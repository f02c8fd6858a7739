#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/types.h"

/// One packet on a connection: a header, and the flattened event or reply behind it. A body too
/// large for a packet travels as a sealed memory file whose descriptor the packet carries, so that
/// no sender waits for its peer to read.
namespace clientcomm {

enum class PacketKind : std::uint8_t { kEvent = 1, kEventWantingReply = 2, kReply = 3 };

/// A packet as it was received.
struct Packet {
  PacketKind kind = PacketKind::kEvent;
  OSErr status = noErr;             ///< Of a reply.
  AppleEventDescriptor descriptor;  ///< The event, or the reply where its status is noErr.
  ScopedFd executable;              ///< The sender's own executable, where it was handed over.
  std::uint32_t token = 0;          ///< The sender's `processToken`, 0 for none.
};

/// Sends one packet on the connected socket `socket`; never waits.
/// @param executable descriptor to hand over with the packet, or -1.
/// @param token the `processToken` that goes with it, or 0.
/// @return noErr; memFullErr for a body beyond a limit of event_limits.h; paramErr for a body that
///         is no event; errAETimeout while so many of the user's descriptors are on their way that
///         the system takes no more; connectionInvalid when the peer is gone.
OSErr sendPacket(int socket, PacketKind kind, OSErr status, const AppleEventDescriptor& descriptor,
                 int executable, std::uint32_t token = 0);

/// The same for an event, or a reply with a body, whose `flattenedSize` is `bodySize`; 0 for a
/// reply without a body.
OSErr sendPacketOfSize(std::size_t bodySize, int socket, PacketKind kind, OSErr status,
                       const AppleEventDescriptor& descriptor, int executable, std::uint32_t token);

/// A packet whose body has not been looked at: its receiver decides first whether it serves the
/// sender.
struct Envelope {
  PacketKind kind = PacketKind::kEvent;
  OSErr status = noErr;        ///< Of a reply.
  ScopedFd executable;         ///< The sender's own executable, where it was handed over.
  std::uint32_t token = 0;     ///< The sender's `processToken`, 0 for none.
  std::size_t bodySize = 0;    ///< As the sender says.
  std::string_view shortBody;  ///< A body in the packet; gone with the next one that is received.
  ScopedFd longBody;           ///< The memory file of a body that is not in the packet.
};

enum class ReceiveResult { kPacket, kNothingYet, kClosed, kMalformed };

/// Takes one packet off the socket, without waiting and without reading its body.
ReceiveResult receiveEnvelope(int socket, Envelope& envelope);

/// The event or reply that the envelope holds; nothing where it is malformed.
std::optional<AppleEventDescriptor> decodeBody(const Envelope& envelope);

/// Takes one packet off the socket, without waiting, and decodes its body.
ReceiveResult receivePacket(int socket, Packet& packet);

}  // namespace clientcomm
