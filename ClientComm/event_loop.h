#pragma once

#include "ClientComm/platform/export.h"

/// @file
/// The library in a host that runs no GLib main loop: plain epoll, libuv, SDL, Qt without GLib. The
/// host opens the library's own loop before it uses anything else of the library, waits for one
/// descriptor, and runs what is due:
///
///     const int descriptor = clientcomm::openEventLoop();
///     // … the host's own loop waits until `descriptor` is readable …
///     clientcomm::runEventLoop();
///
/// A host that opens none is served by the GLib main context of the thread that makes the first
/// call.

namespace clientcomm {

/// The outcome of opening or running the library's own event loop.
enum class EventLoopStatus : int {
  /// Done, also when nothing was due.
  kDone = 0,
  /// There is no open loop.
  kNotOpen = 1,
  /// The library is in use on a GLib main context, and stays there.
  kTooLate = 2,
  /// Another thread has opened the loop, and only that thread uses it.
  kWrongThread = 3,
  /// This is a forked copy of the process that has opened the loop, which the copy cannot use.
  kForked = 4,
  /// The process is out of descriptors or memory. A later call may succeed.
  kOutOfResources = 5,
};

/// Puts the library's timers and the calls from other applications on a loop that this thread runs,
/// for the rest of the process's life. Call it before the first `share()`.
/// @param status set to the outcome, where it is not null.
/// @return a descriptor that is readable while something is due: a tick or a call; the same one on
///         each call. -1 where `status` is not kDone. It belongs to the library: a host that closes
///         it is not woken any more, but can still call `runEventLoop`.
CLIENTCOMM_EXPORT int openEventLoop(EventLoopStatus* status = nullptr) noexcept;

/// Does what is due, without waiting. Calls take at most 4 ms, and the one that is being carried
/// out then; what remains keeps the descriptor readable. A tick that has to launch the helper takes
/// as long as that takes. With nothing due it costs two short system calls, so that a program that
/// draws frame after frame can call it once a frame, without waiting for the descriptor.
///
/// May be called from a call-back, for instance by a dialog that runs a loop of its own: ticks
/// continue, further calls wait until the call-back returns.
/// @return kDone, also when nothing was due; kNotOpen, kWrongThread, kForked, kOutOfResources.
CLIENTCOMM_EXPORT EventLoopStatus runEventLoop() noexcept;

}  // namespace clientcomm
