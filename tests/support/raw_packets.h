#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/posix/scoped_fd.h"

/// Packets built byte by byte, so that a test can send what the library itself never does. A packet
/// from here is well-formed unless the test says otherwise.
namespace support::raw {

/// The header of a packet, field by field.
struct Header {
  std::uint32_t magic = clientcomm::fourCharCode("TQHP");
  std::uint8_t version = 1;
  std::uint8_t kind = 1;  ///< 1 event, 2 event that wants a reply, 3 reply.
  std::int16_t status = 0;
  std::uint32_t bodySize = 0;
  std::uint32_t token = 0;
};

/// The header alone; the body travels in a memory file.
std::string packet(const Header& header);

/// `header` with `body` behind it. `bodySize` is set to the body's size.
std::string packet(Header header, std::string_view body);

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

/// Sends the bytes as one packet, with descriptors beside them. @return whether they were taken.
bool send(int socket, std::string_view bytes, const std::vector<int>& descriptors = {});

/// A memory file of `size` bytes that begins with `head`, sealed with `seals`.
clientcomm::ScopedFd memoryFile(std::string_view head, std::size_t size, int seals);
/// The same, sealed as the body of an event has to be.
clientcomm::ScopedFd memoryFile(std::string_view head, std::size_t size);

}  // namespace support::raw
