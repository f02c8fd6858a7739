#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/types.h"
#include "benchmarks/support/shared_counter.h"
#include "tests/support/child_process.h"

/// The other sides of what is measured: an application that takes the library's calls, a bare
/// socket server, and a service on a message bus of its own. Each is a process of its own on the
/// receivers' processor, started on first use.
namespace bench {

inline constexpr const char kReceiverClass[] = "BenchmarkReceiver";
inline constexpr const char kNote[] = "note:text:";
inline constexpr const char kSay[] = "say:";

/// A receiver's process, and how many calls it has handled.
struct Peer {
  support::ChildProcess process;
  SharedCounter handled;

  /// Waits until the calls counted since `before` are `count`, and ends the run if they never are.
  void waitForCalls(std::uint64_t before, std::uint64_t count) const;
};

/// --- The application ---

inline constexpr const char kReceiverIdentifier[] = "com.example.benchmark.receiver";

Peer& receiver();

/// Sends `note:text:` to the receiver.
clientcomm::OSErr sendNote(std::span<const std::string> arguments);
/// Asks the receiver to say `text` back.
clientcomm::OptionalString ask(const std::string& text);
/// Bytes of the packet that carries `selector` with `arguments` to the receiver, and of the reply
/// that carries `text` back.
std::size_t callPacketSize(const std::string& selector, const std::vector<std::string>& arguments);
std::size_t replyPacketSize(const std::string& text);

/// --- The bare socket server ---
///
/// Accepts, reads one packet, and closes, in a poll loop. The first bytes of a packet are the size
/// of the packet to answer with, 0 for none.

Peer& socketServer();

/// Connects, sends one packet of `size` bytes, and closes. @return whether that succeeded.
bool sendPacketToServer(std::size_t size);
/// The same, and waits for a packet of `replySize` bytes.
bool exchangePacketWithServer(std::size_t size, std::size_t replySize);
/// A process that does what a host's tick cannot do without, at the same instant of a second as
/// other programs' timers, every 5 s: looks at a file and sends the server a packet.
support::ChildProcess startTicking();
/// Connects to a name that nobody has. @return whether that failed, as it should.
bool connectToNobody();

/// --- The service on the bus ---

inline constexpr const char kServiceName[] = "com.example.Receiver";

struct UnrefBus {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using ScopedBus = std::unique_ptr<sd_bus, UnrefBus>;

Peer& busService();

/// A connection of this process to the bus; the bus and the service run then.
sd_bus& busConnection();
/// A further connection, for a process forked from this one.
ScopedBus connectToBus();
/// Asks the bus whether somebody has the name, and sends `Note` to who has it, without a reply.
bool sendNoteOverBus(sd_bus& bus, const std::string& name, const std::vector<std::string>& texts);
/// Asks the bus who has `name`. @return whether anybody has.
bool hasOwner(sd_bus& bus, const std::string& name, std::string* owner = nullptr);
/// Calls `Say` with `text`. @return whether the same text came back.
bool askOverBus(sd_bus& bus, const std::string& text);

/// What the service offers, for one that is reached without a bus.
extern const sd_bus_vtable kServiceMethods[];
inline constexpr const char kServicePath[] = "/com/example/Receiver";
inline constexpr const char kServiceInterface[] = "com.example.Receiver";

}  // namespace bench
