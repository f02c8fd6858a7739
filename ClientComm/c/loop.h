#pragma once

/// @file
/// The event loop, for C.

#include "ClientComm/c/status_code.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Puts the library's timers and calls on a loop that this thread runs, as `openEventLoop` of
/// ClientComm/event_loop.h. Call it before `clientcomm_start` or `clientcomm_open_to_calls`. A
/// program that runs a GLib main loop needs none.
/// @param descriptor receives a descriptor that is readable while something is due; -1 where the
///        status is not CLIENTCOMM_OK. It belongs to the library.
/// @return CLIENTCOMM_OK, also for a loop that is open already; CLIENTCOMM_LOOP_TOO_LATE,
///         CLIENTCOMM_WRONG_THREAD, CLIENTCOMM_FORKED, CLIENTCOMM_OUT_OF_RESOURCES.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_open_event_loop(int* descriptor);

/// Does what is due, without waiting, as `runEventLoop`. May be called from a call-back: ticks
/// continue, further calls wait until the call-back returns.
/// @return CLIENTCOMM_OK, also when nothing was due; CLIENTCOMM_LOOP_NOT_OPEN,
///         CLIENTCOMM_WRONG_THREAD, CLIENTCOMM_FORKED, CLIENTCOMM_OUT_OF_RESOURCES.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_run_event_loop(void);

#ifdef __cplusplus
}
#endif
