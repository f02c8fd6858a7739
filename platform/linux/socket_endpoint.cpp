#include "platform/linux/socket_endpoint.h"

#include <fcntl.h>
#include <glib.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/linux/check_in.h"
#include "platform/linux/peer_identity.h"
#include "platform/linux/runtime_folder.h"
#include "platform/linux/socket_path.h"

namespace platform {
namespace {

// Events that wait to be accepted; the kernel cuts it to net.core.somaxconn.
constexpr int kBacklog = 4096;

// Events handled in one turn of the main loop, so that the host's own sources get theirs too.
constexpr int kEventsPerTurn = 16;

constexpr std::chrono::milliseconds kVerifyInterval = std::chrono::seconds(1);

// How often an endpoint that sends nothing looks after its name: a helper may do nothing but wait
// for calls, and nobody reaches it to have it look.
constexpr std::chrono::milliseconds kIdleVerifyInterval = std::chrono::seconds(5);

// Pause of accepting when the process is out of descriptors: the listening socket stays readable
// meanwhile, and without a pause the main loop would spin.
constexpr std::chrono::milliseconds kAcceptPause{100};

// How long a connection that was accepted just now is given to say something, before it is put with
// the silent ones.
constexpr std::chrono::microseconds kFirstPacketPatience{20};

// With more silent peers than this, none is given that time.
constexpr std::size_t kFewSilentPeers = 4;

constexpr AEEventID kAnswer = fourCharCode("ansr");

struct EndpointSource {
  GSource base;
  SocketEndpoint* endpoint;
};

// The endpoint whose name has to be taken back when the process exits, and the process.
SocketEndpoint* openEndpoint = nullptr;
pid_t openEndpointOwner = 0;

void removeNameAtExit() {
  // A forked copy of the process runs this too, and must not take its parent's name away.
  if (openEndpoint != nullptr && getpid() == openEndpointOwner) openEndpoint->removeName();
}

void noteOpenEndpoint(SocketEndpoint* endpoint) {
  [[maybe_unused]] static const int registered = std::atexit(removeNameAtExit);
  openEndpoint = endpoint;
  openEndpointOwner = getpid();
}

gint64 microseconds(std::chrono::steady_clock::time_point time) {
  // GLib's monotonic time is the steady clock's.
  return std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
}

// A sender sends as soon as it is connected, so that its packet is there or about to be. To go
// round the main loop for it would cost both of them another wake-up.
ReceiveResult receiveFirstPacket(int socket, Packet& packet) {
  ReceiveResult result = receivePacket(socket, packet);
  if (result != ReceiveResult::kNothingYet) return result;
  const auto end = std::chrono::steady_clock::now() + kFirstPacketPatience;
  do {
    sched_yield();
    result = receivePacket(socket, packet);
  } while (result == ReceiveResult::kNothingYet && std::chrono::steady_clock::now() < end);
  return result;
}

AppleEventDescriptor addressDescriptor(pid_t pid, const Packet& packet) {
  const auto psn = serialNumberForPeer(pid, packet.executable.get(), packet.token);
  if (!psn) return {};
  return {typeProcessSerialNumber, std::string(reinterpret_cast<const char*>(&*psn), sizeof *psn)};
}

}  // namespace

SocketEndpoint::SocketEndpoint(const std::string& identifier,
                               AppleEventTransport::Receiver receiver)
    : name_(fileNameForIdentifier(identifier)), receiver_(std::move(receiver)) {
  attachSource();
}

SocketEndpoint::~SocketEndpoint() {
  *isAlive_ = false;
  source_.reset();
  removeName();
  if (openEndpoint == this) openEndpoint = nullptr;
}

void SocketEndpoint::attachSource() {
  static GSourceFuncs functions = {nullptr, nullptr, &SocketEndpoint::dispatch,
                                   nullptr, nullptr, nullptr};
  source_.reset(g_source_new(&functions, sizeof(EndpointSource)));
  reinterpret_cast<EndpointSource*>(source_.get())->endpoint = this;
  g_source_set_name(source_.get(), "ClientComm endpoint");
  // Otherwise GLib takes the source's descriptors off its poll for each dispatch and puts them back
  // after it, and wakes itself up for both.
  g_source_set_can_recurse(source_.get(), TRUE);
  g_source_attach(source_.get(), g_main_context_get_thread_default());
}

OSErr SocketEndpoint::open() {
  const OSErr status = takeName();
  lastVerified_ = Clock::now();
  scheduleWakeUp();
  return status;
}

OSErr SocketEndpoint::takeName() {
  const ScopedFd folder = openRuntimeFolder(true);
  if (!folder.isValid()) return errAEEventNotPermitted;
  ScopedFd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.isValid()) return memFullErr;
  if (const OSErr status = bindTo(folder, socket.get()); status != noErr) return status;
  listener_ = std::move(socket);
  listenerTag_ = g_source_add_unix_fd(source_.get(), listener_.get(), G_IO_IN);
  noteOpenEndpoint(this);
  checkIn();
  return noErr;
}

// The name is taken by renaming a listening socket onto it: whoever connects finds either the
// former endpoint or this one, never a socket that does not listen yet.
OSErr SocketEndpoint::bindTo(const ScopedFd& folder, int socket) {
  const std::string ownName = name_ + "." + std::to_string(getpid());
  unlinkat(folder.get(), ownName.c_str(), 0);
  const SocketPath path(ownName);
  struct stat status {};
  if (!path.isValid() || bind(socket, path.address(), SocketPath::size()) != 0 ||
      fchmodat(folder.get(), ownName.c_str(), S_IRUSR | S_IWUSR, 0) != 0 ||
      fstatat(folder.get(), ownName.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      ::listen(socket, kBacklog) != 0 ||
      renameat(folder.get(), ownName.c_str(), folder.get(), name_.c_str()) != 0) {
    unlinkat(folder.get(), ownName.c_str(), 0);
    return errAEEventNotPermitted;
  }
  device_ = status.st_dev;
  inode_ = status.st_ino;
  return noErr;
}

bool SocketEndpoint::nameLeadsHere() const noexcept {
  struct stat status {};
  const SocketPath path(name_);
  return listener_.isValid() && path.isValid() && lstat(path.path(), &status) == 0 &&
         status.st_dev == device_ && status.st_ino == inode_;
}

bool SocketEndpoint::nameLeadsElsewhere() const {
  const SocketPath path(name_);
  const ScopedFd probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!path.isValid() || !probe.isValid()) return false;
  return connect(probe.get(), path.address(), SocketPath::size()) == 0 || errno == EAGAIN;
}

void SocketEndpoint::removeName() const noexcept {
  if (nameLeadsHere()) unlink(SocketPath(name_).path());
}

void SocketEndpoint::verify() {
  const auto now = Clock::now();
  if (now - lastVerified_ < kVerifyInterval) return;
  lastVerified_ = now;
  if (nameLeadsHere() || (listener_.isValid() && nameLeadsElsewhere())) return;
  // Left to the main loop: events that wait at the old socket have to be handled first.
  mustReopen_ = true;
  scheduleWakeUp();
}

int SocketEndpoint::dispatch(GSource* source, GSourceFunc /*callback*/, void* /*data*/) noexcept {
  SocketEndpoint* const endpoint = reinterpret_cast<EndpointSource*>(source)->endpoint;
  const auto isAlive = endpoint->isAlive_;
  if (endpoint->isServing_) {
    endpoint->listen(false);
    return G_SOURCE_CONTINUE;
  }
  endpoint->isServing_ = true;
  try {
    endpoint->takeEvents();
  } catch (...) {
    // Out of memory: the event is dropped, which its sender sees as a closed connection.
  }
  if (!*isAlive) return G_SOURCE_REMOVE;
  endpoint->isServing_ = false;
  if (!endpoint->isListening_) endpoint->listen(true);
  endpoint->scheduleWakeUp();
  return G_SOURCE_CONTINUE;
}

// A handler may run a main loop of its own. Events wait until it returns, each handled whole before
// the next, and that loop must not be woken by them again and again.
void SocketEndpoint::listen(bool isListening) {
  isListening_ = isListening;
  const auto condition = isListening ? G_IO_IN : static_cast<GIOCondition>(0);
  if (listenerTag_ != nullptr && !isPaused_) {
    g_source_modify_unix_fd(source_.get(), listenerTag_, condition);
  }
  for (const SilentPeer& peer : silentPeers_) {
    g_source_modify_unix_fd(source_.get(), peer.tag, condition);
  }
  if (!isListening) g_source_set_ready_time(source_.get(), -1);
}

void SocketEndpoint::takeEvents() {
  const auto isAlive = isAlive_;
  if (isPaused_) resumeAccepting();
  if (Clock::now() - lastVerified_ >= kIdleVerifyInterval) verify();
  serveSilentPeers();
  for (int i = 0; *isAlive && i < kEventsPerTurn; ++i) {
    if (acceptOne()) continue;
    if (*isAlive && mustReopen_ && !isPaused_) reopen();
    return;
  }
}

void SocketEndpoint::reopen() {
  mustReopen_ = false;
  if (listenerTag_ != nullptr) g_source_remove_unix_fd(source_.get(), listenerTag_);
  listenerTag_ = nullptr;
  listener_.reset();
  open();
}

void SocketEndpoint::serveSilentPeers() {
  if (silentPeers_.empty()) return;
  const auto isAlive = isAlive_;
  const auto now = Clock::now();
  for (auto peer = silentPeers_.begin(); peer != silentPeers_.end();) {
    const bool hasSpoken = g_source_query_unix_fd(source_.get(), peer->tag) != 0;
    if (!hasSpoken && now < peer->deadline) {
      ++peer;
      continue;
    }
    peer = dismiss(peer);
    if (!*isAlive) return;
  }
}

// A sender that was silent when its connection was accepted, and has sent since, may be connected
// again with a later event already. The earlier one goes first.
void SocketEndpoint::serveEarlierOf(pid_t pid) {
  const auto isAlive = isAlive_;
  for (auto peer = silentPeers_.begin(); peer != silentPeers_.end();) {
    if (peer->pid != pid) {
      ++peer;
      continue;
    }
    // The handler may run anything; the list is not touched by it, as this source is not entered
    // twice, but the whole endpoint may go.
    const bool isServed = serve(peer->socket.get(), pid, false);
    if (!*isAlive) return;
    peer = isServed ? forget(peer) : std::next(peer);
  }
}

SocketEndpoint::SilentPeers::iterator SocketEndpoint::forget(SilentPeers::iterator peer) {
  g_source_remove_unix_fd(source_.get(), peer->tag);
  return silentPeers_.erase(peer);
}

// What the peer has said up to now counts, since it was told so; what it says from now on is
// refused on its own side. The endpoint may be gone after this.
SocketEndpoint::SilentPeers::iterator SocketEndpoint::dismiss(SilentPeers::iterator peer) {
  const ScopedFd socket = std::move(peer->socket);
  const pid_t pid = peer->pid;
  g_source_remove_unix_fd(source_.get(), peer->tag);
  peer = silentPeers_.erase(peer);
  shutdown(socket.get(), SHUT_RD);
  serve(socket.get(), pid, false);
  return peer;
}

void SocketEndpoint::keepSilent(ScopedFd socket, pid_t pid) {
  const auto isAlive = isAlive_;
  if (silentPeers_.size() >= kMaximumSilentPeers) dismiss(silentPeers_.begin());
  if (!*isAlive) return;
  void* const tag = g_source_add_unix_fd(source_.get(), socket.get(), G_IO_IN);
  silentPeers_.push_back({std::move(socket), pid, Clock::now() + kSilenceLimit, tag});
}

/// @return whether another connection may be waiting.
bool SocketEndpoint::acceptOne() {
  if (!listener_.isValid() || isPaused_) return false;
  ScopedFd socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket.isValid()) return copeWithAcceptError(errno);
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return true;
  if (peer.uid != geteuid()) return true;
  const auto isAlive = isAlive_;
  if (!silentPeers_.empty()) serveEarlierOf(peer.pid);
  if (!*isAlive) return false;
  // No patience in a crowd of silent peers: on a busy machine it costs a turn of the scheduler
  // each.
  const bool isServed = serve(socket.get(), peer.pid, silentPeers_.size() < kFewSilentPeers);
  if (!*isAlive) return false;
  if (!isServed) keepSilent(std::move(socket), peer.pid);
  return *isAlive;
}

/// @return whether to try again at once.
bool SocketEndpoint::copeWithAcceptError(int error) {
  if (error == EINTR || error == ECONNABORTED) return true;
  if (error == EAGAIN || error == EWOULDBLOCK) return false;
  if (!silentPeers_.empty()) {
    const auto isAlive = isAlive_;
    dismiss(silentPeers_.begin());
    return *isAlive;
  }
  pauseAccepting();
  return false;
}

void SocketEndpoint::pauseAccepting() {
  isPaused_ = true;
  g_source_modify_unix_fd(source_.get(), listenerTag_, static_cast<GIOCondition>(0));
}

void SocketEndpoint::resumeAccepting() {
  isPaused_ = false;
  if (listenerTag_ != nullptr) g_source_modify_unix_fd(source_.get(), listenerTag_, G_IO_IN);
}

/// @return false when the peer has not said anything yet.
bool SocketEndpoint::serve(int socket, pid_t pid, bool isNew) {
  Packet packet;
  const ReceiveResult result =
      isNew ? receiveFirstPacket(socket, packet) : receivePacket(socket, packet);
  if (result == ReceiveResult::kNothingYet) return false;
  if (result == ReceiveResult::kPacket && packet.kind != PacketKind::kReply) {
    handle(socket, pid, std::move(packet));
  }
  return true;
}

void SocketEndpoint::handle(int socket, pid_t pid, Packet packet) {
  // Whatever the message says of its sender is overwritten.
  packet.descriptor.setAttributeDescriptor(addressDescriptor(pid, packet), keyAddressAttr);
  AppleEventDescriptor reply = AppleEventDescriptor::appleEvent(fourCharCode("aevt"), kAnswer, {},
                                                                packet.descriptor.returnID(),
                                                                packet.descriptor.transactionID());
  const AppleEventTransport::Receiver receiver = receiver_;
  const OSErr status = receiver(std::move(packet.descriptor), reply);
  if (packet.kind != PacketKind::kEventWantingReply) return;
  if (sendPacket(socket, PacketKind::kReply, status, reply, -1) != noErr) {
    sendPacket(socket, PacketKind::kReply, memFullErr, {}, -1);
  }
}

void SocketEndpoint::scheduleWakeUp() {
  auto time = lastVerified_ + kIdleVerifyInterval;
  if (!silentPeers_.empty()) time = std::min(time, silentPeers_.front().deadline);
  if (isPaused_) time = std::min(time, Clock::now() + kAcceptPause);
  const bool isDue = mustReopen_ && !isPaused_;
  g_source_set_ready_time(source_.get(), isDue ? 0 : microseconds(time));
}

}  // namespace platform
