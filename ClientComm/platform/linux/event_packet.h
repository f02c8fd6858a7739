#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/types.h"
#include "ClientComm/platform/wire_format.h"

/// One packet on a connection: a header, and the flattened event or reply behind it. A body too
/// large for a packet travels as a sealed memory file whose descriptor the packet carries, so that
/// no sender waits for its peer to read.
namespace clientcomm {

/// A packet as it was received.
struct Packet {
  PacketKind kind = PacketKind::kEvent;
  OSErr status = noErr;             ///< Of a reply.
  AppleEventDescriptor descriptor;  ///< The event, or the reply where its status is noErr.
  ScopedFd executable;              ///< The sender's own executable, where it was handed over.
  std::uint32_t token = 0;          ///< The sender's `processToken`, 0 for none.
};

/// What a packet says besides its body.
struct PacketFields {
  PacketKind kind = PacketKind::kEvent;
  WireVersion version = kLowestWireVersion;
  OSErr status = noErr;     ///< Of a reply.
  int executable = -1;      ///< Descriptor to hand over with an event, or -1.
  std::uint32_t token = 0;  ///< The `processToken` that goes with an event, or 0.
};

/// Sends one packet on the connected socket `socket`; never waits.
/// @param version of the packet, which the peer serves.
/// @return noErr; memFullErr for a body beyond a limit of wire_format.h; paramErr for a body that
///         is no event; errAETimeout while so many of the user's descriptors are on their way that
///         the system takes no more, or the peer has so much to read; connectionInvalid when the
///         peer is gone.
OSErr sendPacket(int socket, PacketKind kind, OSErr status, const AppleEventDescriptor& descriptor,
                 int executable, std::uint32_t token = 0, WireVersion version = kLowestWireVersion);

/// The same for an event, or a reply with a body, whose `flattenedSize` is `bodySize`; 0 for a
/// reply without a body.
OSErr sendPacketOfSize(std::size_t bodySize, int socket, const PacketFields& fields,
                       const AppleEventDescriptor& descriptor);

/// A packet whose body has not been looked at: its receiver decides first whether it serves the
/// sender.
struct Envelope {
  PacketKind kind = PacketKind::kEvent;
  WireVersion version = kLowestWireVersion;
  OSErr status = noErr;        ///< Of a reply.
  ScopedFd executable;         ///< The sender's own executable, where it was handed over.
  std::uint32_t token = 0;     ///< The sender's `processToken`, 0 for none.
  std::size_t bodySize = 0;    ///< As the sender says.
  std::string_view shortBody;  ///< A body in the packet; gone with the next one that is received.
  ScopedFd longBody;           ///< The memory file of a body that is not in the packet.
};

enum class ReceiveResult {
  kPacket,
  kNothingYet,
  kClosed,
  kMalformed,
  kUnknownVersion,  ///< A packet of a version that is not served; its `kind` is known.
};

/// Takes one packet off the socket, without waiting and without reading its body.
/// @param highest version that is served.
ReceiveResult receiveEnvelope(int socket, Envelope& envelope,
                              WireVersion highest = kHighestWireVersion);

/// The event or reply that the envelope holds; nothing where it is malformed.
std::optional<AppleEventDescriptor> decodeBody(const Envelope& envelope);

/// Takes one packet off the socket, without waiting, and decodes its body.
ReceiveResult receivePacket(int socket, Packet& packet, WireVersion highest = kHighestWireVersion);

}  // namespace clientcomm
