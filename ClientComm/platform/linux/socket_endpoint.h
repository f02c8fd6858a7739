#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

#include "ClientComm/platform/apple_event_transport.h"
#include "ClientComm/platform/glib/scoped_source.h"
#include "ClientComm/platform/linux/endpoint_name.h"
#include "ClientComm/platform/linux/event_server.h"
#include "ClientComm/platform/linux/file_watch.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/types.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm {

/// The application's own end: a listening socket under the application's name, and a source in the
/// main context (glib/main_context.h) that takes events off it, one at a time, and never waits. The
/// source has a priority after drawing and before idle work, and a limited time for each turn of
/// the main loop.
class SocketEndpoint {
 public:
  /// @param highestVersion of the wire that is served.
  SocketEndpoint(const std::string& identifier, AppleEventTransport::Receiver receiver,
                 WireVersion highestVersion = kHighestWireVersion);
  ~SocketEndpoint();
  SocketEndpoint(const SocketEndpoint&) = delete;
  SocketEndpoint& operator=(const SocketEndpoint&) = delete;

  /// Takes the name. When that fails, the main loop tries again every second, as long as no other
  /// process has it.
  /// @return noErr; errAEEventNotPermitted when the runtime folder is not usable; memFullErr when
  ///         the process is out of descriptors.
  OSErr open(EndpointName::IfTaken ifTaken = EndpointName::IfTaken::kReplace);

  /// Makes sure, at most once a second, that the name still leads here: the file may have been
  /// cleared away, or a newer process of the same application may have ended. For a sender. The
  /// main loop does so too, less often, or when the kernel tells it to.
  void verify();

  /// The process that waits for the reply to the event being handled; 0 when none does.
  pid_t waitingPeer() const noexcept { return server_.waitingPeer(); }

 private:
  using Clock = std::chrono::steady_clock;

  void attachSource();
  OSErr takeName(EndpointName::IfTaken ifTaken);
  Clock::time_point nextLook() const noexcept;
  bool look(Clock::time_point now);
  void lookWhenDue(Clock::time_point now);

  static int dispatch(GSource* source, GSourceFunc callback, void* data) noexcept;
  void suspend();
  void resume();
  void watch(GIOCondition condition);
  void takeEvents();
  void reopen();
  bool serveNext(Clock::time_point now);
  bool acceptOne();
  bool handleAcceptError(int error);
  void pauseAccepting();
  void resumeAccepting();
  void scheduleWakeUp();

  EndpointName name_;
  ScopedFd listener_;
  ScopedSource source_;
  void* listenerTag_ = nullptr;
  bool isServing_ = false;
  bool isListening_ = true;
  bool isPaused_ = false;
  bool mustReopen_ = false;
  EventServer server_;
  FileWatch files_{source_};
  Clock::time_point lastVerified_;  ///< For a sender.
  Clock::time_point lastLook_;      ///< For a sender or by the main loop.
  /// Since when nothing has been sent and no file had to be put back, as far as is known.
  Clock::time_point quietSince_;
  /// False once the endpoint is gone; a handler may close it while it is being served.
  std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

}  // namespace clientcomm
