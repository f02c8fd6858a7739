#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "ClientComm/platform/apple_event.h"

/// The constants of docs/wire-format.md: what goes over the socket between applications with
/// different copies of the library. A value changes only by the rule for versions on that page.
namespace clientcomm {

// --- Versions. ---

/// A version of the wire. An application serves, and knows how to send, every one up to its own.
using WireVersion = std::uint8_t;

inline constexpr WireVersion kLowestWireVersion = 1;
inline constexpr WireVersion kHighestWireVersion = 1;

// --- The packet. ---

inline constexpr std::uint32_t kPacketMagic = fourCharCode("TQHP");

enum class PacketKind : std::uint8_t {
  kEvent = 1,
  kEventWantingReply = 2,
  kReply = 3,
  kWatch = 4,  ///< Asks for a reply for every call that the receiver takes.
};

// Descriptors that come with a packet, in the order of their bits.
inline constexpr std::uint16_t kBodyAttachment = 1;        ///< A memory file with the body.
inline constexpr std::uint16_t kExecutableAttachment = 2;  ///< The sender's own executable.
inline constexpr std::size_t kMaximumDescriptorsPerPacket = 2;

/// The header of a packet, as it is in memory on a little-endian machine.
struct PacketHeader {
  std::uint32_t magic = kPacketMagic;
  std::uint8_t version = kLowestWireVersion;
  std::uint8_t kind = 1;          ///< A `PacketKind`.
  std::uint16_t headerSize = 20;  ///< In bytes; more with extensions, which a receiver skips.
  std::uint32_t bodySize = 0;     ///< 0 for a reply with an error status.
  std::uint32_t token = 0;        ///< Of an event: of its sender; see process_token.h.
  std::int16_t status = 0;        ///< Of a reply.
  std::uint16_t attachments = 0;  ///< Of the bits above.
};

/// Bytes of the header without extensions.
inline constexpr std::size_t kPacketHeaderSize = sizeof(PacketHeader);
static_assert(kPacketHeaderSize == 20 && PacketHeader().headerSize == kPacketHeaderSize);

/// Bytes of the header that have the same meaning in every version: up to the header's size.
inline constexpr std::size_t kPacketPrefixSize = offsetof(PacketHeader, bodySize);

/// Bytes of one packet, its header among them. A body that does not fit goes into a memory file,
/// and so does a smaller one where the system's send buffers are below their usual size
/// (net.core.wmem_default, 208 KiB).
inline constexpr std::size_t kMaximumPacketSize = std::size_t{160} << 10;

// --- The flattened event. Sizes in bytes. ---

inline constexpr std::size_t kDescriptorHeaderSize = 8;  ///< Type and length.
inline constexpr std::size_t kEventHeaderSize = 14;      ///< Class, ID, return and transaction ID.
inline constexpr std::size_t kCountSize = 4;             ///< Of items, attributes, parameters.
inline constexpr std::size_t kKeywordSize = 4;

inline constexpr AEEventClass kCallEventClass = fourCharCode("aevt");
inline constexpr AEEventID kCallEventID = fourCharCode("call");
inline constexpr AEEventID kAnswerEventID = fourCharCode("ansr");

// --- Limits. A receiver refuses what exceeds one, so a sender refuses it first: `memFullErr`. ---

/// Bytes of the flattened form; ample for a 16 MiB argument.
inline constexpr std::size_t kMaximumFlattenedSize = std::size_t{64} << 20;

/// Levels of lists and events; a call event needs four.
inline constexpr int kMaximumNesting = 16;

/// Descriptors in all, the event and its lists among them, so that a peer cannot fill memory with
/// empty ones.
inline constexpr std::size_t kMaximumDescriptors = std::size_t{1} << 18;

/// Attributes of one event, and parameters of one event: setting one looks through those before it.
inline constexpr std::uint32_t kMaximumKeywords = 64;

// --- What a watcher of calls gets. ---

/// The descriptor type of a record.
inline constexpr DescType kWatchRecordType = fourCharCode("wtch");

/// The size of a text that is nil.
inline constexpr std::int64_t kNilText = -1;

/// Programs that may watch an application at the same time; a further one replaces the oldest.
inline constexpr std::size_t kMaximumWatchers = 4;

/// Bytes of one text of a call that a watcher is told, and arguments of one call.
inline constexpr std::size_t kLongestWatchedText = 256;
inline constexpr std::size_t kMaximumWatchedArguments = 8;

// --- Time limits. ---

/// How long a sender waits at most for a target whose queue of events is full; the default time-out
/// of a send without reply.
inline constexpr std::chrono::milliseconds kHandOverLimit = std::chrono::seconds(5);

/// How long a sender waits for an answer by default.
inline constexpr std::chrono::milliseconds kReplyLimit = std::chrono::seconds(60);

/// How often a sender that waits checks that the other process still exists: a child that it forked
/// may hold its end of the connection open after it has died.
inline constexpr std::chrono::milliseconds kLivenessInterval = std::chrono::seconds(1);

/// Pause between tries where the system does not tell when the next one can succeed. A try takes a
/// fortieth of it.
inline constexpr std::chrono::microseconds kTryInterval{250};

/// After this the sender passes its executable to the same receiver again. So few others can do so
/// meanwhile that the receiver still remembers this process, even if it remembers only 256.
inline constexpr std::chrono::seconds kHandshakeValidity{1};

/// How long a connection may stay idle at the receiver: accepted, with nothing received on it.
inline constexpr std::chrono::milliseconds kIdleLimit = std::chrono::seconds(10);

/// Idle connections that a receiver keeps; a further one replaces the oldest.
inline constexpr std::size_t kMaximumIdleConnections = 64;

/// How often a receiver checks its name: while it sends; while it sends nothing and the system does
/// not watch the name for it, as a helper may only wait for calls that no longer reach it; and
/// while it has no open endpoint.
inline constexpr std::chrono::milliseconds kVerifyInterval = std::chrono::seconds(1);
inline constexpr std::chrono::milliseconds kIdleVerifyInterval = std::chrono::seconds(5);
inline constexpr std::chrono::milliseconds kOpenRetryInterval = std::chrono::seconds(1);

}  // namespace clientcomm
