#include "tools/clientcomm/watch/call_watch.h"

#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "ClientComm/platform/linux/access_proof.h"
#include "ClientComm/platform/linux/event_packet.h"
#include "ClientComm/platform/linux/peer_process.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "tools/clientcomm/status_text.h"

namespace clientcomm::tool {
namespace {

/// Waits for a packet. @return as `receivePacket`, but not kNothingYet.
ReceiveResult await(const Connection& connection, Packet& packet) {
  const int interval = static_cast<int>(kLivenessInterval.count());
  for (;;) {
    const ReceiveResult result = receivePacket(connection.socket.get(), packet);
    if (result != ReceiveResult::kNothingYet) return result;
    pollfd entry{connection.socket.get(), POLLIN, 0};
    // A child that the application forked may hold the connection open after it has ended.
    if (poll(&entry, 1, interval) == 0 && !connection.peerExists()) return ReceiveResult::kClosed;
  }
}

std::string proofFor(const Connection& connection) {
  const pid_t id = PeerProcess(connection.peer, connection.socket.get()).idInProc();
  return id == 0 ? std::string() : accessProof(ProcPath::ofProcess(id, kAccessProofFile));
}

// The kernel closes the connections of a process shortly before it counts as ended.
bool hasEnded(const Connection& connection) {
  constexpr int kTries = 100;
  const PeerProcess peer(connection.peer, connection.socket.get());
  for (int i = 0; i < kTries; ++i) {
    if (peer.hasExited() || !connection.peerExists()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

[[noreturn]] void refuse(const std::string& why) { throw std::runtime_error(why); }

}  // namespace

CallWatch::CallWatch(const std::string& identifier) {
  EventDelivery delivery(kHighestWireVersion);
  const Deadline deadline(kAENoReply, kAEDefaultTimeout);
  const OSErr status = delivery.connect(identifier, deadline, connection_);
  if (status != noErr) refuse(textOf(status));
  ask();
}

void CallWatch::ask() {
  constexpr char kMayNotLook[] =
      "the application may not be looked into from here: it is another sandbox's, or has made "
      "itself undumpable";
  PacketHeader header;
  header.kind = static_cast<std::uint8_t>(PacketKind::kWatch);
  const std::string proof = proofFor(connection_);
  if (proof.empty()) refuse(kMayNotLook);
  header.bodySize = static_cast<std::uint32_t>(proof.size());
  std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
  bytes += proof;
  Packet answer;
  // One that is closed meanwhile is noticed below.
  static_cast<void>(send(connection_.socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
  const ReceiveResult result = await(connection_, answer);
  if (result == ReceiveResult::kPacket && answer.kind == PacketKind::kReply) {
    if (answer.status == errAEEventNotPermitted) refuse(kMayNotLook);
    if (answer.status != noErr) refuse(textOf(answer.status));
    return;
  }
  refuse(hasEnded(connection_) ? "the application has ended"
                               : "the application's library is too old to be watched");
}

std::optional<WatchedCall> CallWatch::next() {
  Packet packet;
  const ReceiveResult result = await(connection_, packet);
  if (result == ReceiveResult::kClosed) {
    if (hasEnded(connection_)) return std::nullopt;
    refuse("the application tells no more: others watch it, or it is out of descriptors");
  }
  auto call = result == ReceiveResult::kPacket ? watchedCallIn(packet.descriptor) : std::nullopt;
  if (!call) refuse("the application tells something else than its calls");
  return call;
}

}  // namespace clientcomm::tool
