#pragma once

#include <sys/types.h>

#include <chrono>
#include <list>
#include <memory>
#include <string>

#include "platform/apple_event_transport.h"
#include "platform/linux/event_packet.h"
#include "platform/linux/scoped_fd.h"
#include "platform/linux/scoped_source.h"
#include "platform/types.h"

namespace platform {

/// How long a peer may stay connected without having said anything.
inline constexpr std::chrono::milliseconds kSilenceLimit = std::chrono::seconds(10);

/// How many silent peers are kept; a further one takes the place of the oldest.
inline constexpr std::size_t kMaximumSilentPeers = 64;

/// The application's own end: a listening socket under the application's name, and a source in the
/// thread's default main context that takes events off it, one at a time, and never waits.
///
/// Where several processes run the same application, the newest has the name; an older one takes it
/// back when the newer is gone.
class SocketEndpoint {
 public:
  SocketEndpoint(const std::string& identifier, AppleEventTransport::Receiver receiver);
  ~SocketEndpoint();
  SocketEndpoint(const SocketEndpoint&) = delete;
  SocketEndpoint& operator=(const SocketEndpoint&) = delete;

  /// Takes the name. When that fails, it is tried again every few seconds.
  /// @return noErr; errAEEventNotPermitted when the runtime folder is not usable; memFullErr when
  ///         the process is out of descriptors.
  OSErr open();

  /// Makes sure, at most once a second, that the name still leads here: the file may have been
  /// cleared away, or a newer process of the same application may have ended. The main loop does so
  /// too, less often.
  void verify();

  /// Takes the name back, where it still leads here; for the end of the process.
  void removeName() const noexcept;

 private:
  using Clock = std::chrono::steady_clock;
  struct SilentPeer {
    ScopedFd socket;
    pid_t pid;
    Clock::time_point deadline;
    void* tag;  ///< Of the source's poll entry.
  };
  using SilentPeers = std::list<SilentPeer>;

  void attachSource();
  OSErr takeName();
  OSErr bindTo(const ScopedFd& folder, int socket);
  bool nameLeadsHere() const noexcept;
  bool nameLeadsElsewhere() const;

  static int dispatch(GSource* source, GSourceFunc callback, void* data) noexcept;
  void listen(bool isListening);
  void takeEvents();
  void reopen();
  void serveSilentPeers();
  void serveEarlierOf(pid_t pid);
  bool acceptOne();
  bool copeWithAcceptError(int error);
  void pauseAccepting();
  void resumeAccepting();
  void keepSilent(ScopedFd socket, pid_t pid);
  SilentPeers::iterator dismiss(SilentPeers::iterator peer);
  SilentPeers::iterator forget(SilentPeers::iterator peer);
  bool serve(int socket, pid_t pid, bool isNew);
  void handle(int socket, pid_t pid, Packet packet);
  void scheduleWakeUp();

  std::string name_;
  AppleEventTransport::Receiver receiver_;
  ScopedFd listener_;
  dev_t device_ = 0;  ///< Of the socket file that this endpoint put under the name.
  ino_t inode_ = 0;
  ScopedSource source_;
  void* listenerTag_ = nullptr;
  bool isServing_ = false;
  bool isListening_ = true;
  bool isPaused_ = false;
  bool mustReopen_ = false;
  SilentPeers silentPeers_;
  Clock::time_point lastVerified_;
  /// False once the endpoint is gone; a handler may close it while it is being served.
  std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

}  // namespace platform
