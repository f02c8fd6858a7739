#pragma once

/// @file
/// The receiving half: what a helper needs, and a host that has classes of its own.

#include <stdbool.h>
#include <stddef.h>

#include "ClientComm/c/call_back.h"
#include "ClientComm/c/method.h"
#include "ClientComm/c/status_code.h"
#include "ClientComm/c/string_handle.h"
#include "ClientComm/platform/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A class that other applications can call.
typedef struct clientcomm_class clientcomm_class;  // NOLINT(modernize-use-using): for C

/// Makes the class `name` callable, in place of an earlier one of this name. Register all classes
/// before `clientcomm_open_to_calls`: a call for a class that is not registered is dropped. Where
/// it succeeds, `destroy`, if not NULL, is called with `context` once, after the class was released
/// and no method of it runs; else never.
/// @param name the name that callers use.
/// @param methods copied. Of two with the same selector the first is called.
/// @param count the number of methods.
/// @param context is passed to each method and `destroy`.
/// @param destroy may be NULL.
/// @param registered receives the handle; may be NULL for a class that stays.
/// @return CLIENTCOMM_BAD_ARGUMENT for a nil or empty name or selector, or a NULL function;
///         CLIENTCOMM_TOO_LARGE for more than 4096 methods.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_register_class(clientcomm_text name,
                                                              const clientcomm_method* methods,
                                                              size_t count, void* context,
                                                              clientcomm_destroy destroy,
                                                              clientcomm_class** registered);

/// Ends the class: calls for it are dropped. A method may release its own class; `destroy` follows
/// when it returns. NULL is no error.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_class_release(clientcomm_class* registered);

/// Makes this process reachable. Calls arrive while the event loop runs. A host need not call it:
/// `clientcomm_start` does.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_open_to_calls(void);

/// Takes no further calls; for a helper that is about to exit.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_close_to_calls(void);

/// For a helper: whether its server is open. While it is closed, hosts neither call nor launch it.
/// @return CLIENTCOMM_NOT_WRITTEN when the helper's preferences could not be written.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_set_server_open(bool is_open);

// --- For a method, during its call. A text is valid until the method returns. ---

/// Number of arguments that the selector takes; 0 for a stale call.
CLIENTCOMM_EXPORT size_t clientcomm_call_count(const clientcomm_call* call);
/// The argument at `index`, from 0; nil for one that the caller has left out, beyond the last, and
/// for a stale call.
CLIENTCOMM_EXPORT clientcomm_text clientcomm_call_argument(const clientcomm_call* call,
                                                           size_t index);
/// The caller's bundle identifier, from its process: the address for `clientcomm_send`.
CLIENTCOMM_EXPORT clientcomm_text clientcomm_call_caller(const clientcomm_call* call);
/// The selector by which the method was called; nil for a stale call.
CLIENTCOMM_EXPORT clientcomm_text clientcomm_call_selector(const clientcomm_call* call);
/// Sets the answer, in place of an earlier one. A call without one is answered with nil.
CLIENTCOMM_EXPORT clientcomm_status clientcomm_call_answer(clientcomm_call* call,
                                                           clientcomm_text answer);

#ifdef __cplusplus
}
#endif
