#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"

/// Packets built byte by byte, so that a test can send what the library itself never does. A packet
/// from here is well-formed unless the test says otherwise.
namespace support::raw {

/// The header of a packet, field by field.
using Header = clientcomm::PacketHeader;

/// The header alone, and zeros up to its `headerSize`.
std::string packet(const Header& header);

/// `header` with `body` behind it. `bodySize` is set to the body's size.
std::string packet(Header header, std::string_view body);

/// The header for a body of `bodySize` bytes in a memory file, which goes with the packet.
std::string packetForFile(std::size_t bodySize, Header header = {});

/// The value's bytes, little-endian.
std::string bytesOf(std::uint16_t value);
std::string bytesOf(std::uint32_t value);

/// A descriptor whose length field says `length`, or the truth.
std::string descriptor(clientcomm::DescType type, std::string_view payload);
std::string descriptor(clientcomm::DescType type, std::string_view payload, std::uint32_t length);

/// A text descriptor.
std::string text(std::string_view text);

/// A list whose count field says `count`, with the flattened `items`.
std::string list(std::uint32_t count, std::string_view items);

/// A null descriptor inside `depth` lists.
std::string nestedLists(int depth);

/// The list of a call: class, selector and one argument, each flattened.
std::string callList(std::string_view className, std::string_view selector,
                     std::string_view argument);

/// One parameter of an event.
struct Parameter {
  clientcomm::AEKeyword keyword;
  std::string flattened;
};

/// An event addressed to `target`, whose parameter count says `count`, or the truth.
std::string event(std::string_view target, clientcomm::AEEventID id,
                  const std::vector<Parameter>& parameters);
std::string event(std::string_view target, clientcomm::AEEventID id,
                  const std::vector<Parameter>& parameters, std::uint32_t count);

/// A connection to the endpoint of `identifier`; not valid when there is none.
clientcomm::ScopedFd connectTo(const std::string& identifier);

/// Connections that fill the queue of the application `identifier`, which must be stopped. It has
/// room again once they are closed and the application has looked at them.
std::vector<clientcomm::ScopedFd> fillQueue(const std::string& identifier);

/// Sends the bytes as one packet, with descriptors beside them. @return whether they were taken.
bool send(int socket, std::string_view bytes, const std::vector<int>& descriptors = {});

/// The bytes of the next packet; empty when the connection ended, or nothing came in 20 seconds.
std::string receive(int socket);

/// A memory file of `size` bytes that begins with `head`, sealed with `seals`.
clientcomm::ScopedFd memoryFile(std::string_view head, std::size_t size, int seals);
/// The same, sealed as the body of an event has to be.
clientcomm::ScopedFd memoryFile(std::string_view head, std::size_t size);

}  // namespace support::raw
