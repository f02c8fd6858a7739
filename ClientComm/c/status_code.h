#pragma once

/// @file
/// The outcome of a function of the C interface.

#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): for C

/// The outcome of a function of the C interface. A value of 16 bits is the status of the operation
/// itself, also one that has no name here; the others are of the C interface.
typedef enum clientcomm_status {
  /// Done; a command was handed over.
  CLIENTCOMM_OK = 0,
  /// The helper was not running and could not be launched.
  CLIENTCOMM_HELPER_NOT_LAUNCHED = 1,
  /// The helper's server is marked closed; nothing was sent.
  CLIENTCOMM_HELPER_SERVER_CLOSED = 10,
  /// NULL or nil where a value must be, or a value that the function does not take.
  CLIENTCOMM_BAD_ARGUMENT = -50,
  /// Larger than can be carried, or memory ran out while it was sent; nothing was sent.
  CLIENTCOMM_TOO_LARGE = -108,
  /// No running application has that identifier.
  CLIENTCOMM_NOT_RUNNING = -600,
  /// The application went away during the exchange.
  CLIENTCOMM_CONNECTION_LOST = -609,
  /// The application does not take calls.
  CLIENTCOMM_NOT_HANDLED = -1708,
  /// The application did not take the call, or answer, in time.
  CLIENTCOMM_TIMED_OUT = -1712,
  /// The application belongs to another user.
  CLIENTCOMM_NOT_PERMITTED = -1743,

  /// There is no value: the helper has given no answer, or nothing is stored.
  CLIENTCOMM_NO_VALUE = 0x10000,
  /// `clientcomm_start` has not been called.
  CLIENTCOMM_NOT_STARTED = 0x10001,
  /// Another thread made the first call; only that thread uses the library.
  CLIENTCOMM_WRONG_THREAD = 0x10002,
  /// The handle was released, is of another kind, or its call has ended.
  CLIENTCOMM_STALE_HANDLE = 0x10003,
  /// There is no open event loop.
  CLIENTCOMM_LOOP_NOT_OPEN = 0x10004,
  /// The library is in use on a GLib main context, and stays there.
  CLIENTCOMM_LOOP_TOO_LATE = 0x10005,
  /// A forked copy of the process cannot use the loop of the original.
  CLIENTCOMM_FORKED = 0x10006,
  /// Memory or descriptors ran out. A later call may succeed.
  CLIENTCOMM_OUT_OF_RESOURCES = 0x10007,
  /// The settings could not be written; they are tried again later.
  CLIENTCOMM_NOT_WRITTEN = 0x10008
} clientcomm_status;

// NOLINTEND(modernize-use-using)

/// An English sentence about `status`, for a log; never NULL. Static. Any thread may call it.
CLIENTCOMM_EXPORT const char* clientcomm_status_text(clientcomm_status status);

#ifdef __cplusplus
}
#endif
